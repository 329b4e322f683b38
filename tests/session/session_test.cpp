// Sessions: what they do, what they refuse whom, and what is left when they fail.
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <thread>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/base/json_text.h"
#include "lib-domain/session/json_call.h"
#include "lib-domain/session/json_text.h"
#include "lib-domain/session/mdomain.hpp"
#include "tests/support/sync_fixture.h"

namespace {

namespace files = std::filesystem;
namespace PATHS = MDOMAIN::PATHS;
using mdomain::Copy;
using mdomain::Error;
using mdomain::Reason;
using mdomain::Role;
using mdomain::Session;
using mdomain::User;
using test::StringList;

constexpr unsigned int kAlice = 1001;
constexpr unsigned int kBob = 1002;
constexpr unsigned int kCarol = 1003;
constexpr unsigned int kStaff = 2001;

// Domains 1 (a.example, everybody) and 2 (b.example, alice its administrator, and bob). The process
// has used the described classes, and has every database open, before its first session.
class SessionTest : public test::SyncTest {
 protected:
  SessionTest() {
    MDOMAIN::RECORD::Domain first("a.example");
    int idx = 0;
    EXPECT_TRUE(MDOMAIN::API::Domain().Create(first, idx));
    EXPECT_EQ(BCC::getInstance(1)->setBCC(1, {{"x", BCC_SENDER, "y"}}), 0);
    EXPECT_EQ(BCC::getInstance(1)->deleteAllBCC(1), 0);
    session_ = Session({1, "tester"});
  }

  void SetUp() override {
    test::SyncTest::SetUp();
    ASSERT_TRUE(session_.CreateDomain({"b.example", "", "<a>", false}));
    ASSERT_TRUE(session_.Refresh());
    ASSERT_TRUE(session_.AddMembers(2, {{kAlice, kBob}, {}}));
    ASSERT_TRUE(session_.SetUser(2, kAlice, {Role::kDomainAdmin, {}, {}, {}}));
  }

  // Everything that a change could have changed.
  static StringList Model() {
    return Rows(
        "SELECT domain_name || ' ' || domain_desc FROM domain_table"
        " UNION ALL SELECT domain_idx || ' ' || uid || ' ' || account_alias || is_duplicated"
        " FROM domain_user_alias_table"
        " UNION ALL SELECT domain_idx || ' ' || uid || ' ' || role FROM domain_user_role_table"
        " UNION ALL SELECT domain_idx || ' ' || gid || ' ' || role FROM domain_group_role_table"
        " ORDER BY 1");
  }

  // Every file but the lock, with its times and its content.
  StringList Files() const {
    StringList files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root())) {
      struct stat info {};
      if (entry.is_regular_file() && entry.path().filename() != "mdomain.lock" &&
          lstat(entry.path().c_str(), &info) == 0) {
        files.push_back(entry.path().string() + " " + std::to_string(info.st_ino) + " " +
                        std::to_string(info.st_mtim.tv_nsec) + " " +
                        std::to_string(info.st_ctim.tv_nsec) + " " +
                        Read(entry.path().string().substr(root().size())));
      }
    }
    std::sort(files.begin(), files.end());
    return files;
  }

  static std::string Sentences(const mdomain::ChangePlan& plan) {
    std::string text;
    for (const auto& change : plan.changes) {
      text += change.what + " " + change.change + ": " + change.text + "\n";
    }
    return text;
  }

  template <typename T>
  static Reason ReasonOf(const mdomain::Result<T>& result) {
    EXPECT_FALSE(result);
    EXPECT_NE(result.GetError().text, "");
    return result.GetError().reason;
  }

  // As a restore does it: over the file, or another one in its place.
  static void Restore(const std::string& path, const std::string& kept, bool in_place) {
    if (in_place) {
      files::copy_file(kept, path, files::copy_options::overwrite_existing);
    } else {
      files::copy_file(kept, path + ".new");
      files::rename(path + ".new", path);
    }
  }

  Session session_;
  long long newest_ = 0;
};

TEST_F(SessionTest, ListsPageByThemselves) {
  for (const auto column :
       {mdomain::UserColumn::kName, mdomain::UserColumn::kAlias, mdomain::UserColumn::kRole}) {
    EXPECT_EQ(session_.ListUsers(1, {"", column, false, 100})->items.size(), 3u);
  }
  for (const size_t size : {1, 2, 100}) {
    StringList names;
    mdomain::UserQuery query;
    query.page_size = size;
    query.is_descending = true;
    auto users = session_.Users(1, query);
    for (const User& user : users) {
      names.push_back(user.name);
    }
    EXPECT_TRUE(users.IsWhole());
    EXPECT_EQ(names, (StringList{"carol", "bob", "alice"})) << size;
  }
  EXPECT_EQ(session_.ListUsers(2)->total, 2u);
  auto nowhere = session_.Users(7);
  EXPECT_EQ(nowhere.begin(), nowhere.end());
  EXPECT_EQ(nowhere.GetError().reason, Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.ListUsers(1, {}, "next")), Reason::kInvalid);

  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}},
              {{"staff:2001", "alice"}, {"admins:2002", "bob"}, {"press:2003", "carol"}});
  ASSERT_TRUE(session_.Refresh());
  ASSERT_TRUE(session_.AddMembers(1, {{}, {kStaff, 2002, 2003}}));
  for (const bool is_descending : {false, true}) {
    StringList names;
    for (const auto& group :
         session_.Groups(1, {"s", mdomain::GroupColumn::kName, is_descending, 2})) {
      names.push_back(group.name);
    }
    StringList wanted = {"admins", "press", "staff"};
    if (is_descending) {
      std::reverse(wanted.begin(), wanted.end());
    }
    EXPECT_EQ(names, wanted);
  }
}

TEST_F(SessionTest, ChangesAndTellsWhatIsThereThen) {
  const auto carol = session_.SetUser(1, kCarol, {{}, {}, {"Boss", "alice"}, {}});
  ASSERT_TRUE(carol);
  EXPECT_TRUE(carol.IsPublished());
  std::map<std::string, std::string> owners;
  for (const auto& alias : carol->aliases) {
    owners[alias.local_part] = alias.is_taken ? alias.owner : "";
  }
  EXPECT_EQ(owners,
            (std::map<std::string, std::string>{{"Boss", ""}, {"alice", "alice"}, {"carol", ""}}));
  ASSERT_TRUE(session_.AddNames(1, {"bücher.example"}));
  EXPECT_EQ(*session_.Addresses(kCarol, true),
            (StringList{"carol@a.example", "Boss@a.example", "carol@bücher.example",
                        "Boss@bücher.example"}));
  EXPECT_EQ((*session_.Owner("BOSS@xn--bcher-kva.example")).value_or("-"), "carol");
  EXPECT_EQ((*session_.Owner("nobody@a.example")).value_or("-"), "-");
  ASSERT_TRUE(session_.CreateEntry(1, {"team", {"bob"}, {}, {"x@y.example"}, ""}));
  ASSERT_TRUE(session_.AddCopies(2, {{Copy::Of::kMailTo, "bob", "alice@b.example"}}));
  ASSERT_TRUE(session_.RemoveUsers(2, {kBob}));
  EXPECT_TRUE(session_.Copies(2)->empty());
  EXPECT_FALSE(session_.FindUser(2, kBob)->has_value());
  const auto history = session_.History(3);
  ASSERT_EQ(history->size(), 3u);
  EXPECT_EQ(history->front().command, "remove 1002 in domain 2");
  EXPECT_EQ(history->front().person, "tester");
  ASSERT_TRUE(session_.Undo((*history)[0].id));
  EXPECT_TRUE(session_.FindUser(2, kBob)->has_value());
  EXPECT_EQ(session_.Copies(2)->size(), 1u);
  EXPECT_EQ(ReasonOf(session_.Undo((*history)[0].id)), Reason::kRefused);
  ASSERT_TRUE(session_.Undo((*history)[1].id));
  EXPECT_TRUE(session_.Copies(2)->empty());
  StringList states;
  for (const auto& entry : *session_.History(4)) {
    states.push_back(entry.state);
  }
  EXPECT_EQ(states, (StringList{"undo", "undo", "undone", "undone"}));
}

TEST_F(SessionTest, RefusesWithReasonsAndChangesNothing) {
  const StringList before = Model();
  const auto carol = session_.SetUser(1, kCarol, {Role::kNone, {}, {"a b", "ok", "x@y"}, {"none"}});
  EXPECT_EQ(ReasonOf(carol), Reason::kInvalid);
  StringList refused;
  for (const auto& one : carol.GetError().refused) {
    refused.push_back(one.what + " " + one.value);
  }
  EXPECT_EQ(refused, (StringList{"role group", "alias a b", "alias x@y", "alias none"}));
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"B.example"})), Reason::kTaken);
  EXPECT_EQ(session_.CreateDomain({"B.example"}).GetError().number, 5618u);
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"no domain", "", "plain"})), Reason::kInvalid);
  EXPECT_EQ(ReasonOf(session_.AddNames(1, {"c.example", "b.example"})), Reason::kTaken);
  EXPECT_EQ(ReasonOf(session_.RemoveNames(1, {"c.example"})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.DeleteDomains({2, 1})), Reason::kRefused);
  EXPECT_EQ(ReasonOf(session_.SetUser(2, kCarol, {})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.AddMembers(2, {{kCarol, 4711}, {}})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.CreateEntry(1, {"bob", {"carol"}, {}, {}, ""})), Reason::kTaken);
  EXPECT_EQ(ReasonOf(session_.AddCopies(1, {{Copy::Of::kMailTo, "x@b.example", "bob"}})),
            Reason::kInvalid);
  EXPECT_EQ(ReasonOf(session_.SetDisclaimers(1, "[{}]")), Reason::kInvalid);
  const auto read = session_.GetDomain(2);
  ASSERT_TRUE(
      session_.SetUser(2, kBob, {{}, {}, {"b"}, {}}, (*session_.FindUser(2, kBob))->version));
  EXPECT_EQ(ReasonOf(session_.SetUser(2, kBob, {{}, {}, {"c"}, {}}, "old")), Reason::kChanged);
  ASSERT_TRUE(session_.SetUser(2, kBob, {{}, {}, {}, {"b"}}));
  ASSERT_TRUE(session_.SetDomain(2, {{}, "described", {}, {}}, read->version));
  EXPECT_EQ(ReasonOf(session_.SetDomain(2, {{}, "again", {}, {}}, read->version)),
            Reason::kChanged);
  ASSERT_TRUE(session_.SetDomain(2, {{}, "", {}, {}}));
  EXPECT_EQ(Model(), before);
  TakeLog();
}

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

TEST_F(SessionTest, SaysDoneOfWhatIsDoneAlone) {
  ASSERT_TRUE(session_.AddMembers(1, {{}, {kStaff}}));
  ASSERT_TRUE(session_.AddCopies(1, {{Copy::Of::kMailTo, "bob", "carol"}}));
  const StringList before = Model();
  EXPECT_EQ(ReasonOf(session_.RestoreMembers(1, kStaff, {kCarol})), Reason::kNotFound);
  EXPECT_EQ(ReasonOf(session_.RemoveCopies(
                1, {{Copy::Of::kMailTo, "bob", "carol"}, {Copy::Of::kMailFrom, "bob", "carol"}})),
            Reason::kNotFound);
  EXPECT_EQ(session_.Copies(1)->size(), 1u);
  test::FailOn("isClusterHealth");
  const auto entry = session_.CreateEntry(1, {"team", {"bob"}, {}, {}, ""});
  EXPECT_EQ(ReasonOf(entry), Reason::kFailed);
  EXPECT_EQ(entry.GetError().number, 5635u);
  test::ClearFaults();
  EXPECT_TRUE(session_.Entries(1)->empty());
  EXPECT_EQ(ReasonOf(session_.Together("throws",
                                       [](Session& session) -> bool {
                                         EXPECT_TRUE(session.CreateDomain({"c.example"}));
                                         throw 1;
                                       })),
            Reason::kFailed);
  // Texts that end early for others, or are none.
  EXPECT_FALSE(session_.FindDomain(std::string("a.example\0x", 11))->has_value());
  for (const std::string& text : {std::string("bob\0x", 5), std::string("\xed\xb2\x80"),
                                  std::string("b\n"), std::string("\xff")}) {
    SCOPED_TRACE(MDOMAIN::BASE::JsonText(Json::Value(text)));
    EXPECT_FALSE(session_.FindDomain(text)->has_value());
    EXPECT_FALSE(session_.FindAccount(text)->has_value());
    EXPECT_FALSE(session_.Owner(text + "@a.example")->has_value());
    EXPECT_EQ(ReasonOf(session_.CreateDomain({text})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetDomain(1, {{}, text, {}, {}})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetDomain(1, {{}, {}, "<a>" + text, {}})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddNames(1, {text})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetUser(1, kBob, {{}, {}, {text}, {}})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddMembers(1, {{kBob}, {}}, {text})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.CreateEntry(1, {text, {"bob"}, {}, {}, ""})), Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.CreateEntry(1, {"x", {}, {}, {text + "@y.example"}, ""})),
              Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddCopies(1, {{Copy::Of::kMailTo, text, "bob"}})),
              Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.AddCopies(1, {{Copy::Of::kMailTo, "bob", text}})),
              Reason::kInvalid);
    EXPECT_EQ(ReasonOf(session_.SetDisclaimers(1, "[" + text)), Reason::kInvalid);
    Json::Value arguments;
    arguments["text"] = text;
    const bool is_text = text == "b\n";
    EXPECT_EQ(mdomain::session::CallByName(session_, "find_domain", arguments).isMember("value"),
              is_text);
  }
  EXPECT_EQ(MDOMAIN::BASE::JsonText(Json::Value("\xffü")), "\"\uFFFDü\"\n");
  EXPECT_EQ(Model(), before);
  TakeLog();
}

TEST_F(SessionTest, FilesThatAreReplacedOrMissingAreFollowed) {
  const auto add_alias = [](Session& session) {
    return bool(session.SetUser(1, kBob, {{}, {}, {"new"}, {}}));
  };
  const struct {
    std::string path;
    std::function<bool(Session&)> change;
    std::function<bool(Session&)> is_changed;
  } cases[] = {
      {DbPath(), add_alias,
       [](Session& session) { return session.Owner("new@a.example")->has_value(); }},
      {PATHS::SettingsDb(),
       [](Session& session) {
         return bool(session.AddCopies(1, {{Copy::Of::kMailTo, "bob", "carol"}}));
       },
       [](Session& session) { return !session.Copies(1)->empty(); }},
      {PATHS::AliasDb(),
       [](Session& session) {
         return bool(session.CreateEntry(1, {"team", {"bob"}, {}, {}, ""}));
       },
       [](Session& session) { return !session.Entries(1)->empty(); }},
  };
  ASSERT_TRUE(session_.CreateEntry(2, {"all", {"bob"}, {}, {}, ""}));
  for (const auto& one : cases) {
    for (const bool in_place : {true, false}) {
      SCOPED_TRACE(one.path + (in_place ? " in place" : " renamed"));
      files::copy_file(one.path, one.path + ".kept", files::copy_options::overwrite_existing);
      ASSERT_TRUE(one.change(session_));
      ASSERT_TRUE(one.is_changed(session_));
      Restore(one.path, one.path + ".kept", in_place);
      EXPECT_FALSE(one.is_changed(session_));
      EXPECT_TRUE(session_.SetDomain(1, {{}, in_place ? "in place" : "renamed", {}, {}}));
      EXPECT_FALSE(one.is_changed(session_));
    }
    files::rename(one.path, one.path + ".away");
    EXPECT_FALSE(one.change(session_)) << one.path;
    EXPECT_FALSE(files::exists(one.path));
    EXPECT_EQ(Configured("virtual_multiple_domain"), "1/a.example, 2/b.example");
    files::rename(one.path + ".away", one.path);
    EXPECT_TRUE(one.change(session_)) << one.path;
  }
  files::rename(DbPath(), DbPath() + ".away");
  EXPECT_NE(ReasonOf(session_.Domains()), Reason::kNotFound);
  EXPECT_NE(ReasonOf(session_.Refresh()), Reason::kNotFound);
  EXPECT_NE(ReasonOf(session_.Publish()), Reason::kNotFound);
  files::rename(DbPath() + ".away", DbPath());
  // That of another host.
  files::copy_file(DbPath(), DbPath() + ".other");
  test::SqliteFile(DbPath() + ".other")
      .Run("UPDATE domain_table SET domain_name = 'other.example' WHERE domain_idx = 2");
  Restore(DbPath(), DbPath() + ".other", false);
  EXPECT_FALSE(session_.As(kAlice).FindDomain("b.example")->has_value());
  EXPECT_TRUE(session_.As(kAlice).FindDomain("other.example")->has_value());
  EXPECT_TRUE(session_.Publish());
  EXPECT_EQ(Configured("virtual_multiple_domain"), "1/a.example, 2/other.example");
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

// For every changing call: what a dry run tells is what the history then has, and it leaves every
// file as it is.
TEST_F(SessionTest, APlanIsWhatTheChangeThenDoes) {
  const std::string disclaimer = R"([{"id": 1, "name": "d", "enabled": true, "op": "or",
      "disabled_for_local_recipient": false, "exception_rule_list": [], "content_txt": "t",
      "content_html": "h", "match_rule_list": [
      {"target": "sender", "pattern_type": "email", "pattern": "*@b.example"}]}])";
  const Copy copy = {Copy::Of::kMailTo, "bob", "carol@a.example"};
  using Work = std::function<std::optional<Error>(Session&)>;
  const auto call = [](auto change) -> Work {
    return [change](Session& session) {
      const auto result = change(session);
      return result ? std::nullopt : std::make_optional(result.GetError());
    };
  };
  const std::pair<const char*, Work> cases[] = {
      {"gets", call([](Session& s) {
         return s.AddMembers(2, {{kCarol}, {}}, {"c", "bob"});
       })},
      {"leaves", call([](Session& s) { return s.RemoveGroups(1, {kStaff}); })},
      {"joins", call([](Session& s) {
         return s.AddMembers(1, {{}, {kStaff}});
       })},
      {"role", call([](Session& s) { return s.SetGroupRole(1, {kStaff}, Role::kDomainAdmin); })},
      {"stays out", call([](Session& s) { return s.RemoveUsers(1, {kAlice}); })},
      {"again", call([](Session& s) { return s.RestoreMembers(1, kStaff); })},
      {"gets", call([](Session& s) {
         return s.SetUser(2, kBob, {{}, {}, {"x"}, {}});
       })},
      {"several members", call([](Session& s) {
         return s.CreateEntry(2, {"team", {"bob"}, {}, {}, ""});
       })},
      {"also goes to", call([](Session& s) {
         return s.SetEntry(2, {"team", {"bob", "carol"}, {}, {}, ""});
       })},
      {"no longer goes", call([](Session& s) { return s.DeleteEntry(2, "team"); })},
      {"is copied to", call([copy](Session& s) { return s.AddCopies(2, {copy}); })},
      {"no longer copied", call([copy](Session& s) { return s.RemoveCopies(2, {copy}); })},
      {"are added", call([&](Session& s) { return s.SetDisclaimers(2, disclaimer); })},
      {"gets the name", call([](Session& s) { return s.AddNames(2, {"n.example"}); })},
      {"gets the name", call([](Session& s) { return s.SetNames(2, {"m.example"}); })},
      {"loses the name", call([](Session& s) { return s.RemoveNames(2, {"m.example"}); })},
      {"pattern", call([](Session& s) {
         return s.SetDomain(2, {{}, {}, "<1a>", {}});
       })},
      {"primary", call([](Session& s) { return s.MakePrimary(2); })},
      {"becomes", call([](Session& s) { return s.SetSetting("postmaster", "bob"); })},
      {"is created", call([](Session& s) { return s.CreateDomain({"c.example"}); })},
      {"is deleted", call([this](Session& s) { return s.Undo(newest_); })},
      {"is new", call([](Session& s) { return s.Refresh(); })},
      {"is deleted", call([](Session& s) { return s.DeleteDomains({1}); })},
      {"two", call([](Session& s) {
         return s.Together("two", [](Session& one) {
           return one.SetDomain(2, {{}, "two", {}, {}}) && one.RemoveUsers(2, {kCarol});
         });
       })},
  };
  for (const auto& [text, work] : cases) {
    SCOPED_TRACE(text);
    const auto newest = session_.History(1)->front();
    newest_ = newest.id;
    if (std::string(text) == "is new") {
      SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}});
    }
    const StringList files = Files();
    const auto plan = session_.DryRun([&](Session& trial) -> mdomain::Result<mdomain::Nothing> {
      const std::optional<Error> error = work(trial);
      return error ? mdomain::Result<mdomain::Nothing>(*error) : mdomain::Nothing();
    });
    ASSERT_TRUE(plan) << plan.GetError().text;
    EXPECT_EQ(Files(), files);
    const std::optional<Error> error = work(session_);
    ASSERT_FALSE(error) << error->text;
    const auto entry = session_.History(1)->front();
    EXPECT_NE(entry.id, newest.id);
    EXPECT_EQ(entry.summary, plan->summary);
    EXPECT_EQ(Sentences(session_.HistoryPlan(entry.id)->value_or(mdomain::ChangePlan())),
              Sentences(*plan));
    EXPECT_NE(Sentences(*plan).find(text == std::string("two") ? "loses" : text),
              std::string::npos);
  }
}

// A refusal is the call's own, an exception takes nothing along, and afterwards changes are real.
TEST_F(SessionTest, ADryRunEndsWithItsCall) {
  const StringList before = Model();
  const auto wrong = [](Session& trial) { return trial.SetUser(2, kBob, {{}, {}, {"a b"}, {}}); };
  EXPECT_EQ(session_.DryRun(wrong).GetError().refused.size(), 1u);
  EXPECT_EQ(ReasonOf(session_.DryRun([](Session& trial) -> mdomain::Result<mdomain::Domain> {
              (void)trial.CreateDomain({"c.example"});
              throw std::runtime_error("no");
            })),
            Reason::kFailed);
  const auto within = [&](Session& trial) { return trial.DryRun(wrong); };
  EXPECT_EQ(ReasonOf(session_.DryRun(within)), Reason::kRefused);
  EXPECT_EQ(ReasonOf(session_.Together("x", [&](Session& one) { return bool(within(one)); })),
            Reason::kRefused);
  // Without the parameter it is a trial all the same: what counts is the thread.
  EXPECT_TRUE(session_.DryRun([&](Session&) { return session_.RemoveUsers(2, {kBob}); }));
  EXPECT_TRUE(session_.DryRun([](Session& trial) {
    (void)trial.SetSetting("acc_domain_name", "dir.example", true);
    return trial.SetSetting("account_type", "ldap", true);
  }));
  EXPECT_EQ(Model(), before);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int round = 0; round < 3; ++round) {
        const std::string alias = "t" + std::to_string(i);
        EXPECT_TRUE(session_.DryRun([](Session& trial) { return trial.DeleteDomains({2}); }));
        EXPECT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {alias}, {}}));
        EXPECT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {}, {alias}}));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(Model(), before);
}

TEST_F(SessionTest, PatternsAreTriedBeforeTheyAreSaved) {
  ASSERT_TRUE(session_.SetUser(1, kBob, {{}, StringList{"a"}, {}, {}}));
  const auto tried = session_.TryPattern(1, "<1a>", {false, 2});
  ASSERT_TRUE(tried);
  EXPECT_EQ(tried->page.items.size(), 2u);
  EXPECT_EQ(tried->page.items[0].rival_names, StringList{"bob"});
  EXPECT_EQ(tried->colliding, 1u);
  EXPECT_EQ(session_.TryPattern(1, "<1a>", {false, 2}, tried->page.next)->page.items[0].name,
            "carol");
  EXPECT_EQ(session_.TryPattern(1, "<1a>", {true, 100})->page.total, 1u);
  const auto missing = session_.TryPattern(1, "<s>");
  EXPECT_EQ(missing->by_account_name, 3u);
  EXPECT_EQ(missing->page.items[0].why, "no value for <s>");
  const auto drift = session_.PatternDrift(1);
  EXPECT_EQ(drift->page.total, 1u);
  EXPECT_EQ(drift->page.items[0].name, "bob");
  EXPECT_EQ(drift->users, 3u);
  for (const char* pattern : {"plain", "<a> b", "<99999999999a>", "<a>."}) {
    EXPECT_EQ(ReasonOf(session_.TryPattern(1, pattern)), Reason::kInvalid) << pattern;
    EXPECT_EQ(ReasonOf(session_.SetDomain(1, {{}, {}, pattern, {}})), Reason::kInvalid) << pattern;
  }
}

TEST_F(SessionTest, SettingsAreCheckedAsTheToolDoes) {
  const std::pair<std::pair<const char*, const char*>, Reason> refused[] = {
      {{"", "x"}, Reason::kInvalid},
      {{"postmaster", "a\nb"}, Reason::kInvalid},
      {{"account_type", "nis"}, Reason::kInvalid},
      {{"acc_domain_name", "../x"}, Reason::kInvalid},
      {{"postmastr", "bob"}, Reason::kRefused},
      {{"smtp_main_domain", "other.example"}, Reason::kRefused},
      {{"account_type", "ldap"}, Reason::kRefused},
  };
  for (const auto& [entry, reason] : refused) {
    EXPECT_EQ(ReasonOf(session_.SetSetting(entry.first, entry.second)), reason) << entry.first;
  }
  EXPECT_EQ(ReasonOf(session_.GetSetting("postmastr")), Reason::kNotFound);
  EXPECT_EQ(session_.GetSetting("smtp_main_domain")->value, "a.example");
  ASSERT_TRUE(session_.SetSetting("of.others", "1", true));
  EXPECT_TRUE(session_.SetSetting("of.others", "2"));
  EXPECT_GT(session_.Settings(true)->size(), session_.Settings()->size());
  // The same process goes on with another account source, and back.
  const auto other = session_.SetSetting("account_type", "ldap", true);
  ASSERT_TRUE(other) << other.GetError().text;
  EXPECT_EQ(other->missing_key, "acc_domain_name");
  EXPECT_NE(other->consequence, "");
  ASSERT_TRUE(session_.SetSetting("account_type", "local", true));
  EXPECT_FALSE(session_.Together("given up", [](Session& one) {
    return one.SetSetting("account_type", "ldap", true) && false;
  }));
  EXPECT_EQ(session_.Domains()->size(), 2u);
  EXPECT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {"again"}, {}}));
  TakeLog();
}

TEST_F(SessionTest, SeveralAreOneOrNothing) {
  const StringList before = Model();
  const size_t entries = session_.History()->size();
  const auto work = [](Session& session) {
    return session.RemoveUsers(2, {kBob}) && session.CreateDomain({"c.example"}) &&
           session.CreateEntry(1, {"team", {"bob"}, {}, {}, ""}) &&
           session.AddCopies(1, {{Copy::Of::kMailTo, "bob", "carol"}}) &&
           session.SetDisclaimers(1, "[]");
  };
  EXPECT_EQ(ReasonOf(session_.Together("all", [&](Session& s) { return work(s) && false; })),
            Reason::kRefused);
  EXPECT_FALSE(session_.Together("throws", [&](Session& s) -> bool {
    work(s);
    throw std::runtime_error("no");
  }));
  EXPECT_EQ(Model(), before);
  EXPECT_TRUE(session_.Entries(1)->empty());
  EXPECT_TRUE(session_.Copies(1)->empty());
  EXPECT_EQ(session_.History()->size(), entries);
  EXPECT_TRUE(session_.Together("all", work));
  EXPECT_EQ(session_.History()->size(), entries + 1);
  ASSERT_TRUE(session_.Undo(session_.History(1)->front().id));
  EXPECT_EQ(Model(), before);
}

// What cannot be published keeps nobody out of the mirror.
TEST_F(SessionTest, RefreshThatFailsIsNotTakenBack) {
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}});
  test::FailOn("isClusterHealth");
  EXPECT_EQ(ReasonOf(session_.Refresh()), Reason::kFailed);
  test::ClearFaults();
  EXPECT_TRUE(session_.FindAccount("dave")->has_value());
  TakeLog();
}

TEST_F(SessionTest, WaitsForOthers) {
  const int held = open(PATHS::LockFile().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"c.example"})), Reason::kBusy);
  // Readers do not wait for one that waits.
  std::thread waiting([] { EXPECT_TRUE(Session({60, "waits"}).CreateDomain({"c.example"})); });
  EXPECT_EQ(session_.Domains()->size(), 2u);
  EXPECT_EQ(ReasonOf(session_.CreateDomain({"d.example"})), Reason::kBusy);
  close(held);
  waiting.join();
  EXPECT_EQ(session_.Domains()->size(), 3u);
}

TEST_F(SessionTest, ManyThreadsTakeTurns) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([this, i] {
      Session own = i % 2 == 0 ? session_ : Session({30, "thread"});
      const std::string alias = "t" + std::to_string(i);
      for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(own.SetUser(1, kCarol, {{}, {}, {alias}, {}}));
        EXPECT_EQ(own.Domains()->size(), 2u);
        EXPECT_EQ((*own.Owner(alias + "@a.example")).value_or("-"), "carol");
        EXPECT_TRUE(own.SetUser(1, kCarol, {{}, {}, {}, {alias}}));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(session_.FindUser(1, kCarol)->value().aliases.size(), 1u);
}

TEST_F(SessionTest, AForkedChildBeginsAnew) {
  for (int round = 0; round < 3; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      const bool is_done = bool(session_.SetUser(1, kCarol, {{}, {}, {"child"}, {}})) &&
                           session_.Domains()->size() == 2;
      _exit(is_done ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ((*session_.Owner("child@a.example")).value_or("-"), "carol");
    ASSERT_TRUE(session_.SetUser(1, kCarol, {{}, {}, {}, {"child"}}));
  }
}

}  // namespace
