// Why things are as they are, what is wrong, and who is told.
#include "lib-domain/base/text.h"
#include "lib-domain/session/json_call.h"
#include "lib-domain/session/json_text.h"
#include "lib-domain/session/mdomain.hpp"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "tests/support/sync_fixture.h"

namespace {

using mdomain::Copy;
using mdomain::Reason;
using mdomain::Role;
using mdomain::Session;
using test::StringList;

constexpr unsigned int kAlice = 1001;
constexpr unsigned int kBob = 1002;
constexpr unsigned int kCarol = 1003;
constexpr unsigned int kStaff = 2001;

// Domains 1 (a.example, everybody, carol with bob's alias) and 2 (b.example: the group staff, which
// is alice, its administrator, and bob; both want "info").
class InsightTest : public test::SyncTest {
 protected:
  void SetUp() override {
    test::SyncTest::SetUp();
    ASSERT_TRUE(session_.CreateDomain({"a.example"}));
    ASSERT_TRUE(session_.CreateDomain({"b.example", "", "<1a>", false}));
    ASSERT_TRUE(session_.Refresh());
    ASSERT_TRUE(session_.AddMembers(2, {{}, {kStaff}}));
    ASSERT_TRUE(session_.SetUser(2, kBob, {{}, {}, {"info"}, {}}));
    ASSERT_TRUE(session_.SetUser(2, kAlice, {Role::kDomainAdmin, {}, {"info"}, {}}));
    ASSERT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {"bob"}, {}}));
    ASSERT_TRUE(session_.AddNames(2, {"bücher.example"}));
    ASSERT_TRUE(session_.CreateEntry(2, {"team", {"bob"}, {}, {"x@y.example"}, ""}));
    ASSERT_TRUE(session_.AddCopies(2, {{Copy::Of::kMailTo, "bob", "x@y.example"},
                                       {Copy::Of::kWholeDomain, "b.example", "all@y.example"}}));
    ASSERT_TRUE(session_.AddCopies(1, {{Copy::Of::kMailFrom, "carol", "bob@a.example"}}));
    ASSERT_TRUE(session_.SetDisclaimers(2, R"([{"id": 7, "name": "d", "enabled": true, "op": "or",
        "disabled_for_local_recipient": false, "exception_rule_list": [], "content_txt": "t",
        "content_html": "h", "match_rule_list": [
        {"target": "sender", "pattern_type": "gid", "pattern": "2001"},
        {"target": "recipient", "pattern_type": "email", "pattern": "in*o@BÜCHER.example"}]}])"));
    TakeLog();
  }

  // The answer of a call, value or reason of the error, as one text.
  static std::string Ask(Session session, const std::string& call, const std::string& arguments) {
    Json::Value with;
    EXPECT_EQ(mdomain::session::ParseJson(arguments, with), "");
    const Json::Value answer = mdomain::session::CallByName(session, call, with);
    return answer.isMember("error") ? answer["error"]["reason"].asString()
                                    : mdomain::session::JsonText(answer["value"]);
  }

  StringList Found(const Session& session) {
    StringList found;
    for (const auto& finding : *session.Doctor()) {
      found.push_back(finding.id + " " + std::to_string(finding.domain));
      EXPECT_NE(finding.text + finding.cure, "");
      EXPECT_EQ(finding.page, "manual/when-something-is-wrong.md#" + finding.id);
    }
    return found;
  }

  Session session_ = Session({1, "tester"});
};

TEST_F(InsightTest, ExplainsWhoseMailItIs) {
  struct Case {
    const char* address;
    const char* receiver;
    StringList steps;
  };
  const Case cases[] = {
      {"info@b.example", "alice", {"domain", "holder", "holder", "collision", "copy"}},
      {"INFO@xn--bcher-kva.example",
       "alice",
       {"spelling", "domain", "holder", "holder", "collision", "copy", "disclaimer"}},
      {"b+news@b.example", "bob", {"domain", "extension", "holder", "copy", "copy", "disclaimer"}},
      {"team@b.example", "bob@localhost, x@y.example", {"domain", "entry", "copy"}},
      {"carol@b.example", "", {"domain", "account", "copy"}},
      {"carol@c.example", "", {"domain"}},
  };
  for (const Case& one : cases) {
    const auto told = session_.Explain(one.address);
    ASSERT_TRUE(told) << one.address;
    EXPECT_EQ(told->receiver, one.receiver);
    StringList steps;
    for (const auto& step : told->steps) {
      const bool is_other = step.step == "postfix" || (step.step == "account" && steps.size() > 1);
      steps.insert(steps.end(), is_other ? 0 : 1, step.step);
    }
    // The disclaimer is about staff, so about whoever of it owns the address.
    StringList wanted = one.steps;
    if (told->receiver == "alice" && wanted.back() != "disclaimer") {
      wanted.push_back("disclaimer");
    }
    EXPECT_EQ(steps, wanted) << one.address;
  }
  const auto info = session_.Explain("info@bücher.example");
  EXPECT_TRUE(info->disclaimers.at(0).fits_sender && info->disclaimers.at(0).fits_recipient);
  EXPECT_TRUE(info->holders.at(0).role == Role::kDomainAdmin && info->holders.at(1).is_taken);
  EXPECT_EQ(session_.Explain("no address").GetError().reason, Reason::kInvalid);
}

TEST_F(InsightTest, ExplainsWhySomebodyIsThere) {
  const auto bob = session_.ExplainUser(kBob);
  ASSERT_TRUE(bob) << bob.GetError().text;
  ASSERT_EQ(bob->domains.size(), 2u);
  const auto& there = bob->domains[1];
  EXPECT_EQ(there.groups.at(0).name, "staff");
  EXPECT_EQ(there.by_pattern, "b");
  std::map<std::string, std::string> why;
  for (const auto& domain : bob->domains) {
    for (const auto& alias : domain.aliases) {
      why[alias.local_part + "@" + domain.domain.name] =
          (alias.is_taken ? alias.owner + ": " + alias.why + "; " : "") +
          (alias.others.empty() ? "" : alias.others.front());
    }
  }
  EXPECT_EQ(why, (std::map<std::string, std::string>{
                     {"bob@a.example", "carol"},
                     {"b@b.example", ""},
                     {"info@b.example",
                      "alice: alice is an administrator of the domain, who comes first; alice"}}));
  EXPECT_EQ(bob->copies.size(), 2u);
  EXPECT_EQ(bob->disclaimers.at(0).id, 7);
  EXPECT_EQ(session_.ExplainUser(kCarol)->domains[0].aliases.at(0).why,
            "bob has the same role and came first");
  ASSERT_TRUE(session_.RemoveUsers(2, {kBob}));
  EXPECT_EQ(session_.ExplainUser(kBob)->taken_out_of.at(0).name, "b.example");
  EXPECT_EQ(session_.ExplainUser(4711).GetError().reason, Reason::kNotFound);
}

TEST_F(InsightTest, TellsEverybodyHisOwn) {
  const auto own = session_.As(kBob).Of(kBob);
  ASSERT_TRUE(own) << own.GetError().text;
  EXPECT_EQ(own->addresses, (StringList{"bob@a.example", "b@b.example", "b@bücher.example"}));
  ASSERT_EQ(own->taken.size(), 2u);
  EXPECT_EQ(own->taken[0].address + " " + own->taken[0].owner, "info@b.example alice");
  StringList copies;
  for (const auto& copy : own->copies) {
    copies.push_back(copy.domain + " " + copy.to);
  }
  EXPECT_EQ(copies, (StringList{"b.example x@y.example", "b.example all@y.example"}));
  const std::string text = Ask(session_.As(kBob), "of", R"({"uid": 1002})");
  for (const char* others : {"carol", "team", "staff", "1001"}) {
    EXPECT_EQ(text.find(others), std::string::npos) << others;
  }
  const auto overview = session_.As(kAlice).Overview(2);
  ASSERT_TRUE(overview);
  EXPECT_EQ(overview->groups.at(0).name, "staff");
  EXPECT_EQ(overview->counts.collisions, 1u);
  EXPECT_EQ(overview->counts.copies, 2u);
  EXPECT_EQ(overview->counts.disclaimers, 1u);
}

TEST_F(InsightTest, ListsThoseWhoAreAskedFor) {
  ASSERT_TRUE(session_.SetUser(1, kAlice, {{}, {}, {"al"}, {"alice"}}));
  struct Case {
    const char* query;
    StringList names;
  };
  const Case cases[] = {
      {R"("domain": 1)", {"alice", "bob", "carol"}},
      {R"("domain": 1, "collides": true)", {"carol"}},
      {R"("domain": 1, "drifts": true)", {"alice"}},
      {R"("domain": 1, "has_own_role": true, "text": "OL")", {"carol"}},
      {R"("domain": 1, "has_own_role": false, "by": "alias", "is_descending": true)",
       {"bob", "alice"}},
      {R"("domain": 2, "has_own_role": false)", {"bob"}},
      {R"("domain": 2, "gid": 2001, "by": "role", "is_descending": true)", {"bob", "alice"}},
      {R"("domain": 2, "gid": 2001, "has_own_role": true, "collides": true)", {}},
  };
  for (const Case& one : cases) {
    const auto query = std::string("{") + one.query + R"(, "page_size": 1, "cursor": ")";
    StringList names;
    std::string cursor;
    do {
      Json::Value page;
      mdomain::session::ParseJson(
          Ask(session_, "list_users", std::string(query).append(cursor).append("\"}")), page);
      EXPECT_EQ(page["total"].asUInt(), one.names.size()) << one.query;
      for (const Json::Value& user : page["items"]) {
        names.push_back(user["name"].asString());
      }
      cursor = page["next"].asString();
    } while (!cursor.empty());
    EXPECT_EQ(names, one.names) << one.query;
  }
}

TEST_F(InsightTest, TellsWhomADisclaimerWouldConcern) {
  const char* const texts = R"("id": 1, "name": "d", "enabled": true, "op": ")";
  const std::pair<const char*, const char*> cases[] = {
      {R"(or", "match_rule_list": [{"target": "sender", "pattern_type": "gid", "pattern": 2001}])",
       "alice,bob//0"},
      {R"(or", "match_rule_list": [{"target": "recipient", "pattern_type": "email",
          "pattern": "*@BÜCHER.example"}], "exception_rule_list": [{"target": "recipient",
          "pattern_type": "uid", "pattern": 1002}])",
       "/alice/1"},
      {R"(and", "match_rule_list": [{"target": "sender", "pattern_type": "uid", "pattern": 1001},
          {"target": "sender", "pattern_type": "email", "pattern": "b*@b.example"}])",
       "//0"},
  };
  for (const auto& [rules, wanted] : cases) {
    const auto reach = session_.TryDisclaimer(2, std::string("{") + texts + rules + "}");
    ASSERT_TRUE(reach) << reach.GetError().text;
    EXPECT_EQ(reach->people, 2u);
    EXPECT_EQ(MDOMAIN::BASE::Join(reach->senders.names, ",") + "/" +
                  MDOMAIN::BASE::Join(reach->recipients.names, ",") + "/" +
                  std::to_string(static_cast<int>(reach->depends_on_other_side)),
              wanted);
  }
  EXPECT_EQ(session_.TryDisclaimer(2, "{}").GetError().reason, mdomain::Reason::kInvalid);
}

TEST_F(InsightTest, TellsWhatMailServicesRead) {
  EXPECT_TRUE(session_.Published()->behind.empty());
  EXPECT_EQ(session_.Published()->person, "tester");
  ASSERT_EQ(mailConfSet("smtp_main_domain", "wrong.example", false, 0), 0);
  const auto published = session_.Published({2});
  ASSERT_EQ(published->behind.size(), 1u);
  EXPECT_EQ(published->behind[0].id, "published");
  EXPECT_EQ(published->items.items.size(), 2u);
  EXPECT_FALSE(*session_.RefreshProgress());
}

TEST_F(InsightTest, AnAdministratorIsToldOfHisDomainsAlone) {
  struct Case {
    unsigned int uid;
    const char* call;
    const char* arguments;
    const char* answer;  // the reason, or "" for a value that names nothing of domain 1
  };
  const Case cases[] = {
      {kAlice, "explain", R"({"address": "info@b.example"})", ""},
      {kAlice, "explain", R"({"address": "bob@b.example"})", ""},
      {kAlice, "explain", R"({"address": "carol@a.example"})", "not-found"},
      {kAlice, "explain", R"({"address": "carol@c.example"})", "not-found"},
      {kAlice, "explain_user", R"({"uid": 1002})", ""},
      {kAlice, "explain_user", R"({"uid": 1003})", "not-found"},
      {kAlice, "explain_user", R"({"uid": 4711})", "not-found"},
      {kAlice, "of", R"({"uid": 1002})", "not-found"},
      {kAlice, "overview", R"({"domain": 2})", ""},
      {kAlice, "overview", R"({"domain": 1})", "not-found"},
      {kAlice, "doctor", "{}", ""},
      {kAlice, "repair", "{}", "refused"},
      {kAlice, "published", "{}", "refused"},
      {kAlice, "refresh_progress", "{}", "refused"},
      {kAlice, "list_users", R"({"domain": 2, "gid": 4})", "not-found"},
      {kAlice, "list_users", R"({"domain": 1, "collides": true})", "not-found"},
      {kAlice, "try_disclaimer", R"({"domain": 1, "json": "{}"})", "not-found"},
      {kBob, "explain", R"({"address": "info@b.example"})", "not-found"},
      {kBob, "explain_user", R"({"uid": 1002})", "not-found"},
      {kBob, "overview", R"({"domain": 2})", "not-found"},
      {kBob, "of", R"({"uid": 1001})", "not-found"},
      {kBob, "repair", "{}", "refused"},
      {4711, "of", R"({"uid": 4711})", "not-found"},
      {4711, "explain", R"({"address": "bob@a.example"})", "not-found"},
  };
  // Something is wrong in both domains.
  ASSERT_TRUE(session_.AddCopies(1, {{Copy::Of::kMailTo, "carol", "gone@a.example"}}));
  ASSERT_TRUE(session_.AddCopies(2, {{Copy::Of::kMailTo, "alice", "gone@b.example"}}));
  for (const Case& one : cases) {
    const std::string answer = Ask(session_.As(one.uid), one.call, one.arguments);
    if (*one.answer != '\0') {
      EXPECT_EQ(answer, one.answer) << one.uid << one.call << one.arguments;
    } else {
      EXPECT_EQ(answer.find("a.example"), std::string::npos) << answer;
      EXPECT_EQ(answer.find("carol"), std::string::npos) << answer;
      EXPECT_NE(answer.find("b.example"), std::string::npos) << answer;
    }
  }
  EXPECT_EQ(Found(session_.As(kAlice)), (StringList{"copies 2"}));
  EXPECT_EQ(Found(session_.As(kBob)), StringList());
}

TEST_F(InsightTest, FindsWhatIsWrongAndMendsWhatFollows) {
  const StringList before = Found(session_);
  EXPECT_EQ(before, (StringList{"postmaster 1", "timer 0"}));
  ASSERT_EQ(mailConfSet("additional_domain-2", "gone.example", true, 0), 0);
  ASSERT_EQ(mailConfSet("virtual_multiple_domain", "1/a.example, 3/c.example", true, 0), 0);
  EXPECT_EQ(Found(session_), (StringList{"postmaster 1", "published 2", "published 0", "timer 0"}));
  EXPECT_EQ(Found(session_.As(kAlice)), (StringList{"published 2", "published 0"}));
  const auto repaired = session_.Repair();
  ASSERT_TRUE(repaired) << repaired.GetError().text;
  EXPECT_TRUE(postara::sdk::Exist(repaired->kept));
  EXPECT_EQ(repaired->findings.size(), before.size());
  const auto last = session_.History(1);
  EXPECT_TRUE(last->empty() || last->front().state != "done" || last->front().command != "repair");
  TakeLog();
}

}  // namespace
