// A process that keeps the library loaded for months, while restores, the tool and other processes
// work on the same files.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/mimedefang.h"
#include "platform/include/batch_scope.h"
#include "tests/support/sync_fixture.h"

namespace {

namespace files = std::filesystem;
using MDOMAIN::API::AliasEntry;
using MDOMAIN::API::Domain;
using MDOMAIN::API::DomainUser;
using MDOMAIN::API::Updater;
using test::SqliteFile;
using test::StringList;
namespace PATHS = MDOMAIN::PATHS;
namespace RECORD = MDOMAIN::RECORD;

// What the library keeps for the life of the process goes before an object like this one does.
class AtExit {
 public:
  ~AtExit() {
    std::string root = (files::temp_directory_path() / "mdomain-exit.XXXXXX").string();
    if (!is_wanted || mkdtemp(root.data()) == nullptr) {
      return;
    }
    files::create_directories(root + "/etc");
    std::ofstream(root + "/etc/passwd") << "alice:x:1001:1500::/home:/bin/false\n";
    std::ofstream(root + "/etc/group") << "staff:x:2001:alice\n";
    setenv("MDOMAIN_ROOT", root.c_str(), 1);
    RECORD::Domain record(-1, "exit.example", "", "<a>", true, false, false);
    int domain_idx = -1;
    const bool is_done = Domain().Create(record, domain_idx) && Updater().Refresh();
    files::remove_all(root);
    if (!is_done) {
      _exit(1);
    }
  }
  bool is_wanted = false;
} at_exit;

class LongProcessTest : public test::SyncTest {
 protected:
  // One domain with its three users; bob has a rule of blind copies.
  LongProcessTest() {
    CreateDomain("example.com", true);
    EXPECT_TRUE(Updater().Refresh());
    EXPECT_EQ(BCC::getInstance()->setBCC(1, {{"bob", BCC_RECIPIENT, "archive@elsewhere.example"}}),
              0);
    EXPECT_EQ(AliasEntry().Create({"info", 1, {{Alias::MemberKind::User, "alice"}}}),
              AliasEntry::Result::kDone);
    TakeLog();
  }

  // As a restore does it.
  static void Replace(const std::string& path, const std::string& by) {
    files::copy_file(by, path + ".restored");
    files::rename(path + ".restored", path);
  }
  static std::string Keep(const std::string& path) {
    files::copy_file(path, path + ".kept");
    return path + ".kept";
  }
  static bool Create(const std::string& name) {
    RECORD::Domain record(-1, name, "", "<a>", false, false, false);
    int domain_idx = -1;
    return Domain().Create(record, domain_idx);
  }
  std::string Published() { return Configured("virtual_multiple_domain"); }
  static StringList Rules() {
    return SqliteFile(PATHS::SettingsDb()).Rows("SELECT name, domain_id FROM bcc_table");
  }
};

TEST_F(LongProcessTest, ReplacedFilesAreFollowed) {
  const std::string model = Keep(DbPath());
  SqliteFile(model).Run("INSERT INTO domain_table VALUES(2,'two.example','','<a>',0)");
  Replace(DbPath(), model);
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_EQ(Published(), "1/example.com, 2/two.example");

  Replace(PATHS::SettingsDb(), Keep(PATHS::SettingsDb()));
  EXPECT_TRUE(DomainUser().Delete(1, {1002}));
  EXPECT_EQ(Rules(), StringList());

  const std::string entries = Keep(PATHS::AliasDb());
  SqliteFile(entries).Run("UPDATE alias_table SET name = 'sales'");
  Replace(PATHS::AliasDb(), entries);
  bool found = false;
  Alias::Entry entry;
  EXPECT_TRUE(AliasEntry().Find(1, "sales", found, entry) && found);
}

// A new, empty file in its place would be published, and mails refused.
TEST_F(LongProcessTest, MissingFileIsAFailureAndNothingComesInItsPlace) {
  struct Case {
    std::string path;
    std::function<bool()> call;
  };
  const Case cases[] = {
      {DbPath(), [] { return Updater().Refresh(); }},
      {DbPath(), [] { return Updater().Trigger(); }},
      {DbPath(), [] { return Create("two.example"); }},
      {PATHS::SettingsDb(), [] { return DomainUser().Delete(1, {1002}); }},
      {PATHS::SettingsDb(), [] { return BCC::getInstance()->deleteAllBCC(1) == 0; }},
      {PATHS::SettingsDb(), [] { return BCC::getInstance()->PublishRules() == 0; }},
      {PATHS::SettingsDb(), [] { return Create("two.example"); }},
      {PATHS::AliasDb(), [] { return DomainUser().Delete(1, {1003}); }},
      {PATHS::AliasDb(),
       [] {
         return AliasEntry().Create({"x", 1, {{Alias::MemberKind::User, "alice"}}}) ==
                AliasEntry::Result::kDone;
       }},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.path);
    files::rename(one.path, one.path + ".away");
    EXPECT_FALSE(one.call());
    EXPECT_TRUE(Logged("database [" + one.path + "] was here and is gone"));
    EXPECT_FALSE(files::exists(one.path));
    EXPECT_EQ(Published(), "1/example.com");
    files::rename(one.path + ".away", one.path);
    TakeLog();
  }
  EXPECT_TRUE(Updater().Refresh());
  EXPECT_EQ(Rules(), StringList()) << "what was left is not finished";
  TakeLog();
}

// Accounts of the one source would be written into the model of the other.
TEST_F(LongProcessTest, ChangedAccountSourceIsRefused) {
  const auto expect_refused = [this](const std::string& line) {
    SetAccounts({{"mallory", 1009}});
    EXPECT_FALSE(Updater().Refresh());
    EXPECT_TRUE(Logged(line)) << line;
    EXPECT_FALSE(Updater().Trigger());
    EXPECT_FALSE(Create("two.example"));
    EXPECT_EQ(Published(), "1/example.com");
    EXPECT_EQ(Rows("SELECT count(*) FROM user_table WHERE user_name = 'mallory'"), StringList{"0"});
    TakeLog();
  };
  mailConfSet("acc_domain_name", "dir.example", true, 0);
  mailConfSet("account_type", "ldap", true, 0);
  expect_refused("account_type is [ldap] now, and this process works with [local]");
  // The model that is not open yet is not that of the known source.
  MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
  expect_refused("account_type is [ldap] now, and this process works with [local]");
  EXPECT_FALSE(files::exists(PATHS::DomainDb("dir.example")));

  mailConfSet("account_type", "local", true, 0);
  EXPECT_TRUE(Updater().Refresh());
  EXPECT_EQ(Rows("SELECT count(*) FROM user_table WHERE user_name = 'mallory'"), StringList{"1"});
  TakeLog();
}

TEST_F(LongProcessTest, StoredAndNotPublishedIsAnOutcomeOfItsOwn) {
  std::vector<RECORD::DomainUser> users = {{1, 1001, "alice", {{"al", false}}, "normal"}};
  std::vector<RECORD::DomainUser> conflicts;
  Domain domains;
  DomainUser members;
  Updater updater;
  RECORD::Domain record(-1, "two.example", "", "<a>", false, false, false);
  int domain_idx = -1;
  const std::pair<const char*, const char*> cases[] = {{"isClusterHealth", "two.example"},
                                                       {"setFile", "three.example"}};
  for (const auto& [function, name] : cases) {
    SCOPED_TRACE(function);
    test::FailOn(function);
    record.SetDomainName(name);
    EXPECT_FALSE(domains.Create(record, domain_idx));
    EXPECT_EQ(domains.GetErrorCode(), 5635U);
    EXPECT_FALSE(members.Set(users, conflicts));
    EXPECT_EQ(members.GetErrorCode(), 5635U);
    EXPECT_FALSE(updater.Refresh());
    EXPECT_EQ(updater.GetErrorCode(), 5635U);
    TakeLog();
    test::ClearFaults();
  }
  // Of the last call alone: what follows was not done, or done and published.
  EXPECT_FALSE(domains.Delete({1}));  // the primary one
  EXPECT_EQ(domains.GetErrorCode(), 0U);
  EXPECT_TRUE(updater.Trigger());
  EXPECT_EQ(updater.GetErrorCode(), 0U);
  EXPECT_EQ(Published(), "1/example.com, 2/two.example, 3/three.example");
  TakeLog();

  test::FailOn("DomainSetting::CreateSettings");
  EXPECT_FALSE(Create("four.example"));
  TakeLog();
  test::ClearFaults();
  EXPECT_TRUE(Create("four.example")) << "what failed is in the way of the next try";
}

TEST_F(LongProcessTest, ValuesThatCannotBeKeptAreRefused) {
  const auto members = [] {
    return Rows("SELECT user_name, role, account_alias FROM domain_user_view ORDER BY 1, 3");
  };
  const StringList before = members();
  using Aliases = std::vector<std::pair<std::string, bool>>;
  const std::pair<std::string, Aliases> changes[] = {
      {"king", {{"new", false}}},
      {"normal", {{"new", false}, {"no one", false}}},
      {"group", {{"", false}}}};
  for (const auto& [role, aliases] : changes) {
    DomainUser api;
    std::vector<RECORD::DomainUser> users = {{1, 1001, "alice", aliases, role}};
    std::vector<RECORD::DomainUser> conflicts;
    EXPECT_FALSE(api.Set(users, conflicts)) << role;
    EXPECT_EQ(api.GetErrorCode(), 5633U);
    EXPECT_EQ(members(), before);
  }

  Json::Value deep;
  for (int level = 0; level < 1200; ++level) {
    Json::Value outer(Json::arrayValue);
    outer.append(deep);
    deep = outer;
  }
  Json::Value list(Json::arrayValue);
  list[0]["id"] = 1;
  EXPECT_EQ(MimeDefang().SetDisclaimerList(1, list), 0);
  EXPECT_LT(MimeDefang().SetDisclaimerList(7, list), 0) << "there is no such domain";
  list[0]["match_rule_list"] = deep;
  EXPECT_LT(MimeDefang().SetDisclaimerList(1, list), 0);
  EXPECT_EQ(MimeDefang().GetDisclaimerList(1, list), 0);

  const BccInfo rule = {"alice", BCC_SENDER, "bob"};
  EXPECT_EQ(BCC::getInstance()->setBCC(1, {rule}), 0);
  EXPECT_LT(BCC::getInstance()->setBCC(7, {rule}), 0);
  EXPECT_NE(BCC::CheckRule({"alice", 9, "bob"}), "");
  TakeLog();
}

TEST_F(LongProcessTest, WhatFollowsFromAChangeWaitsForTheCommit) {
  auto* const handler = MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler();
  {
    BatchScope scope(handler);
    EXPECT_TRUE(Create("two.example"));
    EXPECT_TRUE(DomainUser().Delete(1, {1002}));
    EXPECT_EQ(Published(), "1/example.com");
    EXPECT_EQ(Rules(), StringList{"bob|1"});
    EXPECT_EQ(scope.Commit(), 0);
  }
  EXPECT_EQ(Published(), "1/example.com, 2/two.example");
  EXPECT_EQ(Rules(), StringList());

  const StringList before = Rows("SELECT * FROM domain_user_view");
  try {
    const BatchScope scope(handler);
    EXPECT_TRUE(Create("three.example"));
    EXPECT_TRUE(DomainUser().Delete(1, {1001}));
    throw std::runtime_error("of the caller");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(Rows("SELECT * FROM domain_user_view"), before);
  EXPECT_TRUE(Create("three.example"));
  EXPECT_EQ(Published(), "1/example.com, 2/two.example, 3/three.example");

  BatchScope nothing(nullptr);
  EXPECT_NE(nothing.Commit(), 0);
  EXPECT_TRUE(Logged("A transaction was asked for where no database is open"));
}

// A transaction is its process's: a child neither commits it nor closes its file.
TEST_F(LongProcessTest, ForkedProcessHasHandlersOfItsOwn) {
  auto* const handler = MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler();
  const auto add = [handler](int uid) {
    return handler->exeCmds({"INSERT INTO user_table VALUES(" + std::to_string(uid) + ",'x')"},
                            true);
  };
  const auto in_child = [](const std::function<bool()>& work) {
    const pid_t child = fork();
    if (child == 0) {
      _exit(work() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  };
  {
    auto scope = std::make_unique<BatchScope>(handler);
    EXPECT_EQ(add(9001), 0);
    EXPECT_TRUE(in_child([&] {
      const bool is_refused = add(9002) != 0 && scope->Commit() != 0;
      scope.reset();
      return is_refused;
    }));
    EXPECT_EQ(add(9003), 0);
    EXPECT_EQ(scope->Commit(), 0);
  }
  EXPECT_TRUE(in_child([] { return Create("child.example"); }));
  EXPECT_EQ(Rows("SELECT uid FROM user_table WHERE uid > 9000"), (StringList{"9001", "9003"}));
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_EQ(Published(), "1/example.com, 2/child.example");
}

// Fails the program, with what AddressSanitizer says, when it ends.
TEST_F(LongProcessTest, DestructorsOfGlobalObjectsMayCallTheLibrary) {
  at_exit.is_wanted = true;
}

}  // namespace
