// The whole model as a document, and the lists of the account system.
#include "tests/support/session_fixture.h"

namespace {

using mdomain::Page;
using mdomain::Reason;
using mdomain::Session;
using test::kAlice;
using test::kBob;
using test::kCarol;
using test::kStaff;
using test::SessionTest;
using test::StringList;

std::string With(std::string text, const std::string& what, const std::string& by) {
  const size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), by);
}

TEST_F(SessionTest, ADocumentTakesThePlaceOfTheModel) {
  const auto before = session_.Export();
  ASSERT_TRUE(before);
  ASSERT_TRUE(session_.RemoveUsers(2, {kBob}));
  ASSERT_TRUE(session_.AddCopies(1, {{mdomain::Copy::Of::kMailTo, "alice", "bob"}}));
  const auto after = session_.Export();
  EXPECT_NE(after->version, before->version);
  const StringList model = Model();
  const struct {
    std::string json;
    mdomain::Version version;
    Reason reason;
    std::string text;
  } kRefused[] = {
      {before->json, before->version, Reason::kChanged, "the model was changed meanwhile"},
      {"{", "", Reason::kInvalid, "$: no JSON: "},
      {With(before->json, "\"primary\": true", "\"primary\": 1"), "", Reason::kInvalid,
       "$.domains[0].primary: must be true or false"},
      {With(before->json, "a.example", "exa mple"), "", Reason::kInvalid,
       "$.domains[0].name: \"exa mple\" is not a valid domain name"},
      {R"({"$schema": "export.schema.json", "domains": [], "settings": {}})", "", Reason::kInvalid,
       "$.domains: has none, and the primary domain cannot be deleted"},
      {With(before->json, "\"disclaimers\": []",
            R"("disclaimers": [{"name": {}, "match_rule_list": [{"pattern_type": "user",
               "pattern": "nobody"}]}])"),
       "", Reason::kInvalid, "$.domains[0].disclaimers[0]."},
      {With(before->json, "\"removed\": []", "\"removed\": [\"nobody\"]"), "", Reason::kNotFound,
       "the model stays as it is: \"user nobody\" is not in the mirror"},
  };
  for (const auto& c : kRefused) {
    const auto result = session_.Apply(c.json, false, c.version);
    EXPECT_EQ(ReasonOf(result), c.reason);
    EXPECT_EQ(result.GetError().text.substr(0, c.text.size()), c.text);
    EXPECT_EQ(Model(), model);
  }
  const auto apply = [&](Session& one) { return one.Apply(before->json, false, after->version); };
  EXPECT_EQ(session_.DryRun(apply)->summary, "1 person gets 1 address, 2 other things change");
  EXPECT_EQ(Model(), model);
  ASSERT_TRUE(apply(session_));
  EXPECT_EQ(session_.Export()->json, before->json);
  EXPECT_EQ(session_.History(1)->front().command, "apply");
  // What is so already is no change.
  const long long latest = session_.History(1)->front().id;
  ASSERT_TRUE(session_.Apply(before->json));
  EXPECT_EQ(session_.History(1)->front().id, latest);
  const auto skipped =
      session_.Apply(With(before->json, "\"removed\": []", "\"removed\": [\"nobody\"]"), true);
  ASSERT_TRUE(skipped) << skipped.GetError().text;
  EXPECT_EQ(skipped->left_out, StringList{"user nobody"});
  Session alice = session_.As(kAlice);
  EXPECT_EQ(ReasonOf(alice.Export()), Reason::kRefused);
  EXPECT_EQ(ReasonOf(alice.Apply(before->json)), Reason::kRefused);
}

// As nothing before says, two users have one alias, and somebody's alias becomes an entry's name.
TEST_F(SessionTest, ADocumentThatCannotBeIsTakenBack) {
  const std::string json = session_.Export()->json;
  const StringList model = Model();
  const std::string entries = R"("entries": [{"name": "x", "addresses": ["x@a.example"]}])";
  EXPECT_FALSE(session_.Apply(With(With(json, "\"entries\": []", entries), "\"description\": \"\"",
                                   "\"description\": \"new\"")));
  EXPECT_EQ(Model(), model);
}

TEST_F(SessionTest, AccountsAreListedForThoseWhoBringThemIn) {
  const auto names = [](const mdomain::Result<Page<mdomain::Account>>& page) {
    StringList found;
    for (const mdomain::Account& account : page->items) {
      found.push_back(account.name);
    }
    return found;
  };
  Session alice = session_.As(kAlice);
  for (const Session& one : {session_, alice}) {
    const auto first = one.ListAccounts({"", {}, 2});
    EXPECT_EQ(names(first), (StringList{"alice", "bob"}));
    EXPECT_EQ(names(one.ListAccounts({"", {}, 2}, first->next)).front(), "carol");
    EXPECT_EQ(first->total, 2 + one.ListAccounts({"", {}, 100}, first->next)->items.size());
    EXPECT_EQ(names(one.ListAccounts({"AR", {}, 10})), StringList{"carol"});
    EXPECT_EQ(names(one.ListAccounts({"%", {}, 10})), StringList());
    EXPECT_EQ(names(one.ListAccounts({"", {}, 10, kBob})), StringList{"bob"});
    EXPECT_EQ(names(one.ListAccountGroups({"sta", {}, 10})), StringList{"staff"});
    const auto group = one.ExplainGroup(kStaff);
    const auto members = one.ListAccounts({"", kStaff, 1});
    EXPECT_EQ(members->total, group->members);
    EXPECT_EQ(members->items.size(), 1u);
    EXPECT_EQ(ReasonOf(one.ListAccounts({"", 4711, 1})), Reason::kNotFound);
    EXPECT_EQ(ReasonOf(one.ListAccountGroups({"", kStaff, 1})), Reason::kInvalid);
  }
  ASSERT_TRUE(session_.AddMembers(1, {{}, {kStaff}}));
  EXPECT_EQ(session_.ExplainGroup(kStaff)->domains.size(), 1u);
  EXPECT_EQ(alice.ExplainGroup(kStaff)->domains.size(), 0u);
  const Session carol = session_.As(kCarol);
  EXPECT_EQ(carol.ListAccounts()->total, 0u);
  EXPECT_FALSE(carol.FindAccount("alice")->has_value());
  EXPECT_EQ(carol.ListAccountGroups()->total, 0u);
  EXPECT_EQ(ReasonOf(carol.ExplainGroup(kStaff)), Reason::kNotFound);
}

}  // namespace
