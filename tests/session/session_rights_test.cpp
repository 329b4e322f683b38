// Sessions with the rights of a domain administrator.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/support/session_fixture.h"

namespace {

using mdomain::Copy;
using mdomain::Reason;
using mdomain::Role;
using mdomain::Session;
using test::kAlice;
using test::kBob;
using test::kCarol;
using test::kStaff;
using test::SessionTest;
using test::StringList;

namespace PATHS = MDOMAIN::PATHS;

TEST_F(SessionTest, AnAdministratorHasHisDomainsAndNothingElse) {
  ASSERT_TRUE(session_.SetDisclaimers(1, "[]"));
  const StringList before = Model();
  for (const unsigned int uid : {kAlice, kBob, 4711u}) {
    Session his = session_.As(uid);
    const bool has_domain = uid == kAlice;
    EXPECT_EQ(his.Domains()->size(), has_domain ? 1u : 0u);
    EXPECT_EQ(his.FindDomain("b.example")->has_value(), has_domain);
    EXPECT_EQ(bool(his.ListUsers(2)), has_domain);
    EXPECT_EQ(his.Owner("bob@b.example")->has_value(), has_domain);
    EXPECT_FALSE(his.FindDomain("a.example")->has_value());
    EXPECT_FALSE(his.Owner("bob@a.example")->has_value());
    EXPECT_EQ(his.FindAccount("bob")->has_value(), has_domain);
    EXPECT_EQ(his.FindAccountGroup("2001")->has_value(), has_domain);
    EXPECT_EQ(*his.Addresses(kBob), has_domain ? StringList{"bob@b.example"} : StringList());
    for (const Reason reason :
         {ReasonOf(his.GetDomain(1)),
          ReasonOf(his.SetDomain(1, {{}, "x", {}, {}})),
          ReasonOf(his.ListUsers(1)),
          ReasonOf(his.FindUser(1, kAlice)),
          ReasonOf(his.Preview(1, {{kAlice}, {}})),
          ReasonOf(his.AddMembers(1, {{kAlice}, {}})),
          ReasonOf(his.SetUser(1, kAlice, {Role::kDomainAdmin, {}, {}, {}})),
          ReasonOf(his.RemoveUsers(1, {kBob})),
          ReasonOf(his.ListGroups(1)),
          ReasonOf(his.GroupMembers(1, kStaff)),
          ReasonOf(his.SetGroupRole(1, {}, Role::kNormal)),
          ReasonOf(his.RemoveGroups(1, {})),
          ReasonOf(his.RestoreMembers(1, kStaff)),
          ReasonOf(his.Entries(1)),
          ReasonOf(his.FindEntry(1, "x")),
          ReasonOf(his.CreateEntry(1, {"x", {"bob"}, {}, {}, ""})),
          ReasonOf(his.SetEntry(1, {"x", {"bob"}, {}, {}, ""})),
          ReasonOf(his.DeleteEntry(1, "x")),
          ReasonOf(his.Copies(1)),
          ReasonOf(his.AddCopies(1, {})),
          ReasonOf(his.RemoveCopies(1, {})),
          ReasonOf(his.GetDisclaimers(1)),
          ReasonOf(his.TryPattern(1, "<a>")),
          ReasonOf(his.PatternDrift(1)),
          ReasonOf(his.ListHistory({1, 100})),
          ReasonOf(his.ExplainDisclaimers(1, "", "x@y.example")),

          ReasonOf(his.DryRun([](Session& trial) { return trial.RemoveUsers(1, {kBob}); })),
          ReasonOf(his.SetDisclaimers(1, "[]"))}) {
      EXPECT_EQ(reason, Reason::kNotFound);
    }
    EXPECT_FALSE(his.Undo(1));
    for (const Reason reason :
         {ReasonOf(his.CreateDomain({"c.example"})), ReasonOf(his.DeleteDomains({2})),
          ReasonOf(his.MakePrimary(2)), ReasonOf(his.AddNames(2, {"c.example"})),
          ReasonOf(his.SetNames(2, {})), ReasonOf(his.RemoveNames(2, {})), ReasonOf(his.Refresh()),
          ReasonOf(his.Publish()), ReasonOf(his.Settings()), ReasonOf(his.GetSetting("postmaster")),
          ReasonOf(his.SetSetting("postmaster", "bob"))}) {
      EXPECT_EQ(reason, Reason::kRefused);
    }
  }
  Session alice = session_.As(kAlice);
  EXPECT_EQ(ReasonOf(alice.SetDomain(2, {"c.example", {}, {}, {}})), Reason::kRefused);
  EXPECT_EQ(ReasonOf(alice.AddCopies(2, {{Copy::Of::kMailTo, "x@elsewhere.example", "bob"}})),
            Reason::kInvalid);
  const std::string rules = R"([{"id": 1, "name": "d", "enabled": true, "op": "or",
      "disabled_for_local_recipient": false, "exception_rule_list": [],
      "content_txt": "t", "content_html": "h", "match_rule_list": [
      {"target": "sender", "pattern_type": "email", "pattern": "*@b.example"})";
  EXPECT_EQ(ReasonOf(alice.SetDisclaimers(
                2, rules + R"(,{"target": "sender", "pattern_type": "email", "pattern": "*"}]}])")),
            Reason::kInvalid);
  EXPECT_EQ(ReasonOf(alice.SetDisclaimers(
                2, rules + R"(,{"target": "sender", "pattern_type": "uid", "pattern": 1003}]}])")),
            Reason::kInvalid);
  EXPECT_EQ(Model(), before);
  EXPECT_TRUE(alice.SetDisclaimers(2, rules + "]}]"));
  ASSERT_TRUE(alice.SetUser(2, kBob, {{}, {}, {"b"}, {}}));
  EXPECT_EQ(session_.History(1)->front().person, "alice");
  // Rights are those of the moment.
  ASSERT_TRUE(session_.SetUser(2, kAlice, {Role::kNormal, {}, {}, {}}));
  EXPECT_EQ(ReasonOf(alice.SetUser(2, kBob, {{}, {}, {"c"}, {}})), Reason::kNotFound);
}

TEST_F(SessionTest, AnAdministratorReachesNobodyElse) {
  ASSERT_TRUE(session_.AddMembers(1, {{}, {kStaff}}));
  Session alice = session_.As(kAlice);
  // Rules about accounts fit their aliases at every domain.
  const auto disclaimer = [](const char* op, const std::string& match, const std::string& except) {
    return std::string(R"([{"id": 1, "name": "d", "enabled": true, "op": ")") + op +
           R"(", "content_txt": "t", "content_html": "h", "match_rule_list": [)" + match +
           R"(], "exception_rule_list": [)" + except + "]}]";
  };
  const auto rule = [](const char* type, const char* pattern) {
    return std::string(R"({"target": "sender", "pattern_type": ")") + type + R"(", "pattern": )" +
           pattern + "}";
  };
  const std::string own = rule("email", R"("*@B.example")");
  const std::string bob = rule("uid", "1002");
  const std::string staff = rule("gid", "2001");
  const std::pair<std::string, bool> lists[] = {
      {disclaimer("or", own, bob), true},
      {disclaimer("and", own + "," + bob, ""), true},
      {disclaimer("or", own + "," + bob, ""), false},
      {disclaimer("and", bob, ""), false},
      {disclaimer("and", "", ""), false},
      {disclaimer("and", own + "," + staff, ""), false},
      {disclaimer("or", own, staff), false},
      {disclaimer("or", rule("email", R"("*@*b.example")"), ""), false}};
  for (const auto& [list, is_his] : lists) {
    EXPECT_EQ(bool(alice.SetDisclaimers(2, list)), is_his) << list;
    EXPECT_TRUE(session_.SetDisclaimers(2, list)) << list;
  }
  for (const Copy& copy : {Copy{Copy::Of::kMailTo, "carol@a.example", "bob"},
                           {Copy::Of::kMailFrom, "x@A.Example", "bob"},
                           {Copy::Of::kWholeDomain, "a.example", "bob"},
                           {Copy::Of::kMailTo, "x@b.example.", "bob"}}) {
    EXPECT_EQ(ReasonOf(alice.AddCopies(2, {copy})), Reason::kInvalid) << copy.name;
  }
  // What goes wrong elsewhere is not told, and who may nothing waits for nobody.
  test::FailOn("setFile");
  const auto failed = alice.SetDomain(2, {{}, "new", {}, {}});
  EXPECT_EQ(ReasonOf(failed), Reason::kFailed);
  EXPECT_TRUE(failed.GetError().log.empty());
  EXPECT_FALSE(session_.SetDomain(2, {{}, "new", {}, {}}).GetError().log.empty());
  test::ClearFaults();
  const int held = open(PATHS::LockFile().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(ReasonOf(session_.As(kCarol).RemoveUsers(2, {kBob})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(alice.CreateDomain({"c.example"})), Reason::kRefused);
  EXPECT_EQ(ReasonOf(alice.RemoveUsers(2, {kBob})), Reason::kBusy);
  close(held);
  TakeLog();
}

// What he sees of the history, and takes back, is about his domains and nothing else.
TEST_F(SessionTest, AnAdministratorHasThePartOfTheHistoryThatIsHis) {
  Session alice = session_.As(kAlice);
  const auto commands = [](const mdomain::Page<mdomain::HistoryEntry>& page) {
    StringList texts;
    for (const auto& entry : page.items) {
      texts.push_back(entry.command);
    }
    return texts;
  };
  const auto boss = [](Session& session) { return session.SetUser(2, kBob, {{}, {}, {"b"}, {}}); };
  const auto both = [&](Session& session) {
    return session.Together("both", [&](Session& one) {
      return boss(one) && one.SetUser(1, kBob, {{}, {}, {"b"}, {}});
    });
  };
  EXPECT_EQ(alice.DryRun(both).GetError().reason, Reason::kRefused);
  EXPECT_EQ(session_.DryRun(both)->summary, "1 person gets 2 addresses");
  ASSERT_TRUE(alice.SetDisclaimers(2, "[]"));
  ASSERT_TRUE(both(session_));
  EXPECT_EQ(commands(*session_.ListHistory({2, 1})), StringList{"both"});
  EXPECT_EQ(session_.ListHistory({2, 1})->next, "1");
  EXPECT_EQ(commands(*session_.ListHistory({1, 3}, "1")).back(), "refresh");
  const auto his = alice.ListHistory();
  EXPECT_EQ(commands(*his), (StringList{"set disclaimers of domain 2", "set 1001 in domain 2",
                                        "add 1001 1002 in domain 2", "create domain b.example"}));
  EXPECT_EQ(his->total, 4u);
  EXPECT_EQ(alice.HistoryPlan(his->items[1].id)->value().changes.size(), 1u);
  EXPECT_FALSE(alice.HistoryPlan(session_.History(1)->front().id)->has_value());
  EXPECT_EQ(ReasonOf(alice.Undo(his->items[1].id)), Reason::kRefused);
  ASSERT_TRUE(session_.Undo(session_.History(1)->front().id));
  ASSERT_TRUE(alice.SetUser(2, kBob, {{}, {}, {"c"}, {}}));
  const long long last = session_.History(1)->front().id;
  EXPECT_EQ(alice.DryRun([last](Session& trial) { return trial.Undo(last); })->summary,
            "1 person loses 1 address");
  EXPECT_TRUE(alice.Undo(last));
  // A later domain under the same index begins anew.
  ASSERT_TRUE(session_.DeleteDomains({2}));
  ASSERT_TRUE(session_.CreateDomain({"c.example"}));
  EXPECT_EQ(commands(*session_.ListHistory({2, 100})), StringList{"create domain c.example"});
}

}  // namespace
