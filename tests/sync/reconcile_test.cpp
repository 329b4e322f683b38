// What stands outside the domain database follows the model, whatever interrupted a run before.
#include "lib-domain/sync/reconcile.h"

#include <sys/stat.h>

#include <csignal>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/sync/owner_registry.h"
#include "tests/support/children.h"
#include "tests/support/sync_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
namespace PATHS = MDOMAIN::PATHS;
using MDOMAIN::API::Domain;
using MDOMAIN::API::DomainGroup;
using MDOMAIN::API::DomainUser;
using MDOMAIN::API::Updater;
using MDOMAIN::UTILS::Reconcile;
using MDOMAIN::UTILS::ReconcileResult;
using MDOMAIN::UTILS::ReconcileScope;

constexpr const char* kAliceInDisclaimer =
    R"([{"id":1,"name":"n","enabled":true,"match_rule_list":[)"
    R"({"pattern":1001,"pattern_type":"uid"},{"pattern":1011,"pattern_type":"uid"},)"
    R"({"pattern":2001,"pattern_type":"gid"}]}])";
constexpr const char* kEverything = "aliases limits bcc disclaimers sign selector private public";

class ReconcileTest : public SyncTest {
 protected:
  ReconcileTest() {
    CreateDomain("one.example", true);
    CreateDomain("two.example", false);
  }

  // Something of each kind under an index, as if a domain had it.
  void Plant(int domain_idx) {
    const std::string index = std::to_string(domain_idx);
    SetAliasEntry(domain_idx);
    EXPECT_EQ(MultipleDomain::DomainSetting(PATHS::SettingsDb()).CreateSettings(domain_idx), 0);
    AddRules(domain_idx, {{"info", "boss"}});
    mailConfSet("mimedefang_disclaimers-" + index, kAliceInDisclaimer, true, 0);
    Write("/var/packages/Postara-Server/etc/disclaimer_content/domain-" + index,
          R"([{"id":1,"content_txt":"text"}])");
    mailConfSet("enable_dkim_sign-" + index, "yes", true, 0);
    mailConfSet("dkim_selector-" + index, "s1", true, 0);
    for (const char* name : {"dkim.private-", "dkim.public-"}) {
      Write("/var/packages/Postara-Server/etc/dkim.key/" + (name + index), "key");
    }
  }
  static void SetAliasEntry(int domain_idx) {
    Alias alias(PATHS::AliasDb());
    alias.load();
    alias.set({"all",
               domain_idx,
               {{Alias::MemberKind::User, "alice"}, {Alias::MemberKind::Group, "staff"}}});
  }
  static void AddRules(int domain_idx,
                       const std::vector<std::pair<const char*, const char*>>& rules) {
    for (const auto& [name, bcc_to] : rules) {
      ASSERT_NE(BCC::getInstance(), nullptr);  // makes the file; the domain may be gone
      SqliteFile(PATHS::SettingsDb())
          .Run("INSERT INTO bcc_table(name, type, bcc_to, domain_id) VALUES('" + std::string(name) +
               "', 1, '" + bcc_to + "', " + std::to_string(domain_idx) + ")");
    }
  }
  static StringList Rules(int domain_idx) {
    return SqliteFile(PATHS::SettingsDb())
        .Rows("SELECT name||'>'||bcc_to FROM bcc_table WHERE domain_id=" +
              std::to_string(domain_idx) + " ORDER BY 1");
  }
  std::string Standing(int domain_idx) {
    const std::string index = std::to_string(domain_idx);
    Alias alias(PATHS::AliasDb());
    alias.load();
    std::string found = alias.isAlias("all", domain_idx) ? "aliases " : "";
    SqliteFile settings(PATHS::SettingsDb());
    found += settings.Rows("SELECT 1 FROM multi_domain_rate_table WHERE domain_id=" + index).empty()
                 ? ""
                 : "limits ";
    found += Rules(domain_idx).empty() ? "" : "bcc ";
    found += Configured("mimedefang_disclaimers-" + index).find("1001") == std::string::npos &&
                     Read("/var/packages/Postara-Server/etc/disclaimer_content/domain-" + index)
                             .find("text") == std::string::npos
                 ? ""
                 : "disclaimers ";
    found += Configured("enable_dkim_sign-" + index) == "yes" ? "sign " : "";
    found += Configured("dkim_selector-" + index) == "s1" ? "selector " : "";
    found += KLIBCFileExist(PATHS::DkimPrivateKey(domain_idx).c_str()) ? "private " : "";
    found += KLIBCFileExist(PATHS::DkimPublicKey(domain_idx).c_str()) ? "public" : "";
    return found;
  }
  // What names alice or the group in domain 1: members of the alias table, rules, disclaimers.
  std::string NamesOfLeavers() {
    Alias alias(PATHS::AliasDb());
    alias.load();
    std::string found;
    for (const Alias::Member& member : alias.list().front().members) {
      found += member.name + " ";
    }
    for (const char* id : {"1001", "1011", "2001"}) {
      found += Configured("mimedefang_disclaimers-1").find(id) == std::string::npos
                   ? ""
                   : std::string(id) + " ";
    }
    return found + Text(Rules(1));
  }
  // Whether the operation is killed where `function` is called.
  template <typename Operation>
  static bool IsKilledAt(const std::string& function, const Operation& operation) {
    WhenCalled(function, [] { raise(SIGKILL); });
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    MDOMAIN::API::INTERNAL::ResetBccInstanceForTest();
    const bool was_killed = !InChild([&] {
      operation();
      return true;
    });
    ClearFaults();
    return was_killed;
  }
};

TEST_F(ReconcileTest, NothingOfAVanishedIndexSurvivesTheNextChange) {
  for (const int domain_idx : {2, 7}) {
    Plant(domain_idx);
  }
  AddRules(0, {{"server", "postmaster"}});
  ASSERT_EQ(Standing(7), kEverything);
  Domain api;
  ASSERT_TRUE(api.CreateAdditionalDomains(1, {"more.example"}));
  EXPECT_EQ(Standing(7), "");
  EXPECT_EQ(Standing(2), kEverything);
  EXPECT_EQ(Rules(0).size(), 1U);

  // What is in line is not written again.
  SqliteFile settings(PATHS::SettingsDb());
  SqliteFile keys(PATHS::EtcDir() + "keystore.db");
  SqliteFile model(DbPath());
  const auto versions = [&] {
    return Text(settings.Rows("PRAGMA data_version")) + Text(keys.Rows("PRAGMA data_version")) +
           Text(model.Rows("PRAGMA data_version"));
  };
  const std::string before = versions();
  EXPECT_EQ(Reconcile(ReconcileScope::kFull), ReconcileResult::kNothingToDo);
  EXPECT_EQ(versions(), before);
}

TEST_F(ReconcileTest, LostModelEmptiesNothing) {
  Plant(1);
  Run("DELETE FROM domain_table");
  EXPECT_EQ(Reconcile(ReconcileScope::kFull), ReconcileResult::kNothingToDo);
  EXPECT_EQ(Standing(1), kEverything);
  // The domain that was lost gets back what is its own, another one does not.
  EXPECT_EQ(CreateDomain("one.example", true), 1);
  EXPECT_EQ(Standing(1), kEverything);
  Run("DELETE FROM domain_table");
  EXPECT_EQ(CreateDomain("other.example", true), 1);
  EXPECT_EQ(Standing(1), "limits ");
}

TEST_F(ReconcileTest, NewDomainStartsClean) {
  Plant(3);
  FailOn("mailConfSet", "dkim_selector-3");
  MDOMAIN::RECORD::Domain record(-1, "three.example", "", "<a>", false, false, false);
  int domain_idx = -1;
  EXPECT_FALSE(MDOMAIN::CONTROL::Domain().Create(record, domain_idx));
  EXPECT_TRUE(Logged("Failed to clear the DKIM keys, domain_id: [3]"));
  EXPECT_TRUE(Rows("SELECT 1 FROM domain_table WHERE domain_idx = 3").empty());
  TakeLog();
  ClearFaults();
  EXPECT_TRUE(MDOMAIN::CONTROL::Domain().Create(record, domain_idx));
  EXPECT_EQ(Standing(3), "limits ");
}

// Each item is tried though another one fails, and the change is said to have failed.
TEST_F(ReconcileTest, FailingItemStopsNoOther) {
  Plant(7);
  FailOn("DomainSetting::DelSettings");
  EXPECT_FALSE(Domain().CreateAdditionalDomains(1, {"more.example"}));
  EXPECT_TRUE(Logged("Failed to clear the limits, domain_id: [7], place: [" + PATHS::SettingsDb()));
  TakeLog();
  EXPECT_EQ(Standing(7), "limits ");
  EXPECT_EQ(Rows("SELECT count(*) FROM domain_to_additional_domain_table"), StringList{"1"});
}

TEST_F(ReconcileTest, InterruptedCreationIsFinished) {
  Run("DELETE FROM domain_table");
  EXPECT_TRUE(IsKilledAt("DomainSetting::CreateSettings", [] { CreateDomain("a.example", true); }));
  EXPECT_EQ(Standing(1), "");
  Run("DELETE FROM primary_domain_table");
  EXPECT_TRUE(Updater().Refresh());
  EXPECT_EQ(Rows("SELECT domain_idx, domain_name FROM domain_table"), StringList{"1|a.example"});
  EXPECT_EQ(Standing(1), "limits ");
  EXPECT_EQ(Rows("SELECT domain_idx FROM primary_domain_table"), StringList{"1"});
  EXPECT_EQ(Configured("smtp_main_domain"), "a.example");
}

TEST_F(ReconcileTest, InterruptedDeletionIsFinishedByTheNextCommand) {
  Plant(2);
  mailConfSet("mdomain_model", "dir.example_DOMAIN.db", true, 0);
  ASSERT_EQ(CreateDomain("three.example", false), 3);
  Plant(3);
  EXPECT_TRUE(Domain().Delete({3}));
  EXPECT_EQ(Standing(3), kEverything);
  EXPECT_TRUE(Rows("SELECT * FROM mdomain_departure_table").empty());
  mailConfSet("mdomain_model", "local_DOMAIN.db", true, 0);
  EXPECT_TRUE(IsKilledAt("Alias::load", [] { Domain().Delete({2}); }));
  EXPECT_EQ(Rows("SELECT domain_idx FROM domain_table"), StringList{"1"});
  EXPECT_EQ(Standing(2), kEverything);
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_EQ(Standing(2), "");
  EXPECT_TRUE(Rows("SELECT * FROM mdomain_departure_table").empty());
}

// Texts that a killed writer left beside their place stayed; those of a living one are its own.
TEST_F(ReconcileTest, TextsOfDisclaimersAreSettled) {
  const auto set = [](const char* text) {
    Json::Value list(Json::arrayValue);
    list[0]["id"] = 1;
    list[0]["name"] = list[0]["content_txt"] = text;
    return MimeDefang().SetDisclaimerList(1, list) >= 0;
  };
  const auto settled = [] {
    Json::Value list;
    StringList names;
    postara::sdk::EnumDirectory(PATHS::DisclaimerDir(), names);
    return MimeDefang().GetDisclaimerList(1, list) < 0
               ? "unreadable"
               : list[0]["content_txt"].asString() + " in " + Text(names);
  };
  ASSERT_TRUE(set("old"));
  EXPECT_TRUE(IsKilledAt("mailConfSet", [&] { set("cut off"); }));
  EXPECT_EQ(Reconcile(ReconcileScope::kEachChange), ReconcileResult::kMended);
  const std::string old_texts = settled();
  WhenCalled("mailConfSet", [] { Reconcile(ReconcileScope::kEachChange); });
  EXPECT_TRUE(set("new"));
  ClearFaults();
  EXPECT_EQ(old_texts + ", " + settled(), "old in domain-1, new in domain-1");

  const std::string key = "sync_disclaimer_content_file-1";
  KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::removeKey(key);
  EXPECT_EQ(Reconcile(ReconcileScope::kEachChange), ReconcileResult::kMended);
  EXPECT_EQ(Configured(key), PATHS::DisclaimerContent(1));
  EXPECT_EQ(Reconcile(ReconcileScope::kEachChange), ReconcileResult::kNothingToDo);

  // Texts that are missing beside their list were lost; without one they were removed.
  ASSERT_EQ(MimeDefang().RemoveAllDisclaimerContent(), 0);
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_EQ(Configured(key), PATHS::DisclaimerContent(1));
  ASSERT_EQ(MimeDefang().RemoveAllDisclaimerList(), 0);
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_FALSE(KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::exist(key));
}

// A run that was killed behind the commit left the SMTP side with the old addresses.
TEST_F(ReconcileTest, NoticeThatWasNotGivenIsGivenByTheNextCommand) {
  const auto announce = [] { MDOMAIN::CONTROL::INTERNAL::Announce({1001}); };
  const std::string flag = PATHS::ChangedUserDir() + "1001";
  EXPECT_TRUE(IsKilledAt("KLIBCFileTouch", announce));
  EXPECT_FALSE(KLIBCFileExist(flag.c_str()));
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_TRUE(KLIBCFileExist(flag.c_str()));
  ASSERT_EQ(unlink(flag.c_str()), 0);
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_FALSE(KLIBCFileExist(flag.c_str()));
}

// A failing removal of a file was taken for a missing file.
TEST_F(ReconcileTest, KeyFileThatStaysIsNoSuccess) {
  Plant(2);
  const std::string key = PATHS::DkimPrivateKey(2);
  ASSERT_EQ(unlink(key.c_str()), 0);
  ASSERT_EQ(mkdir(key.c_str(), 0700), 0);
  EXPECT_FALSE(Domain().Delete({2}));
  EXPECT_TRUE(Logged("Failed to remove " + key));
  TakeLog();
  EXPECT_EQ(Standing(2), "private ");
  ASSERT_EQ(rmdir(key.c_str()), 0);
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_TRUE(Rows("SELECT * FROM mdomain_departure_table").empty());
}

class LeaverTest : public ReconcileTest {
 protected:
  LeaverTest() {
    EXPECT_TRUE(Updater().Refresh());
    EXPECT_TRUE(MDOMAIN::CONTROL::DomainGroup().Create(1, StringList{"staff"}));
    EXPECT_TRUE(MDOMAIN::API::DomainUser().Delete(1, {1002}));
    Run("INSERT INTO domain_user_alias_table VALUES(1,1001,'boss',0),(1,1001,'info',0),"
        "(1,1003,'Info',1)");
    EXPECT_TRUE(Domain().CreateAdditionalDomains(1, {"b\u00fccher.example"}));
    SetAliasEntry(1);
    mailConfSet("mimedefang_disclaimers-1", kAliceInDisclaimer, true, 0);
    Write("/var/packages/Postara-Server/etc/disclaimer_content/domain-1", "[]");
    AddRules(1, {{"alice", "archive"},
                 {"boss@xn--bcher-kva.example", "archive"},
                 {"BOSS", "archive"},
                 {"boss@two.example", "archive"},
                 {"x1", "Alice"},
                 {"x2", "boss@one.example"},
                 {"info", "carol"},
                 {"x3", "info@one.example"},
                 {"x4", "all"}});
  }
  const std::string everything_ =
      "alice staff 1001 1011 2001 BOSS>archive, alice>archive, boss@two.example>archive, "
      "boss@xn--bcher-kva.example>archive, info>carol, x1>Alice, x2>boss@one.example, "
      "x3>info@one.example, x4>all";
  const std::string others_ = "boss@two.example>archive, info>carol, x3>info@one.example, x4>all";
  const std::string without_alice_ = "staff 1011 2001 " + others_;
};

// However somebody leaves, and wherever the run is killed: the next person gets nothing of it.
// Where the settings are those of another model's domains, nobody there has left.
TEST_F(LeaverTest, LeaversTakeTheirSettingsWithThem) {
  const struct {
    const char* name;
    bool is_killed;
    std::function<bool()> leave;
    std::string left;
  } cases[] = {
      {"removed", false, [] { return DomainUser().Delete(1, {1001}); }, without_alice_},
      {"removed, killed", true, [] { return DomainUser().Delete(1, {1001}); }, without_alice_},
      {"removed, but for the rows", false,
       [this] {
         FailOn("DBHandler::exeCmds", "DELETE FROM domain_user_alias_table");
         EXPECT_FALSE(MDOMAIN::CONTROL::DomainUser().Delete(1, {1001}));
         ClearFaults();
         TakeLog();
         return Updater().Refresh() &&
                Rows("SELECT 1 FROM domain_user_alias_table WHERE uid=1001").empty();
       },
       without_alice_},
      {"with a group", false, [] { return DomainGroup().Delete(1, {2001}); }, "1011 " + others_},
      {"with a group, killed", true, [] { return DomainGroup().Delete(1, {2001}); },
       "1011 " + others_},
      {"gone, and made again under another id", false,
       [this] {
         SetAccounts({{"alice", 1011}, {"bob", 1002}, {"carol", 1003}});
         return Updater().Refresh();
       },
       without_alice_},
      {"gone, killed", true,
       [this] {
         SetAccounts({{"alice", 1011}, {"bob", 1002}, {"carol", 1003}});
         return Updater().Refresh();
       },
       without_alice_},
  };
  const std::string model = root() + "/model";
  ASSERT_EQ(system(("cp -a " + PATHS::EtcDir() + " " + model).c_str()), 0);
  const auto arrange = [&](const char* name, const char* settings_owner) {
    SCOPED_TRACE(name);
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    MDOMAIN::API::INTERNAL::ResetBccInstanceForTest();
    EXPECT_EQ(system(("cp -a " + model + "/. " + PATHS::EtcDir()).c_str()), 0);
    mailConfSet("mdomain_model", settings_owner, true, 0);
    EXPECT_EQ(NamesOfLeavers(), everything_);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (!c.is_killed) {
      arrange("another model's settings", "dir.example_DOMAIN.db");
      EXPECT_TRUE(c.leave());
      EXPECT_EQ(NamesOfLeavers(), everything_);
      EXPECT_TRUE(Rows("SELECT * FROM mdomain_departure_table").empty());
      SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}});
    }
    arrange("its own", "local_DOMAIN.db");
    if (c.is_killed) {
      EXPECT_TRUE(IsKilledAt("Alias::load", c.leave));
      EXPECT_EQ(NamesOfLeavers(), everything_);
      EXPECT_TRUE(Updater().Refresh());
    } else {
      EXPECT_TRUE(c.leave());
    }
    EXPECT_EQ(NamesOfLeavers(), c.left);
    EXPECT_TRUE(Rows("SELECT * FROM mdomain_departure_table").empty());
    SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}});
  }
}

// The other one of the name was in the domain before: what stands under the name is theirs.
TEST_F(LeaverTest, NamesakeWhoStaysLosesNothing) {
  Run("INSERT INTO user_table VALUES(1011,'alice');"
      "INSERT INTO domain_user_alias_table VALUES(1,1011,'alice',1),(1,1011,'boss',1)");
  SetAccounts({{"alice", 1011}, {"bob", 1002}, {"carol", 1003}});
  EXPECT_TRUE(Updater().Refresh());
  std::string left = everything_;
  EXPECT_EQ(NamesOfLeavers(), left.erase(left.find("1001 "), 5));
}

// Somebody who could not be removed has not left.
TEST_F(LeaverTest, FailedRemovalTakesNothing) {
  FailOn(kBatch, "DELETE FROM domain_user_alias_table");
  EXPECT_FALSE(DomainUser().Delete(1, {1001}));
  TakeLog();
  EXPECT_EQ(NamesOfLeavers(), everything_);
}

TEST_F(LeaverTest, AddingFinishesFirst) {
  EXPECT_TRUE(IsKilledAt("Alias::load", [] { DomainUser().Delete(1, {1001}); }));
  FailOn("Alias::load");
  std::vector<MDOMAIN::RECORD::DomainUserAlias> aliases = {{1, 1001, "alice", false}};
  EXPECT_FALSE(DomainUser().AddMembers(1, {"alice"}, {}, aliases));
  EXPECT_TRUE(Logged("Failed to remove the alias members of those who left, domain_id: [1]"));
  TakeLog();
  EXPECT_TRUE(Rows("SELECT 1 FROM domain_user_alias_table WHERE uid = 1001").empty());
  ClearFaults();
  EXPECT_TRUE(DomainUser().AddMembers(1, {"alice"}, {}, aliases));
  EXPECT_EQ(NamesOfLeavers(), without_alice_);
}

// It was built once, and then answered for people who were gone.
TEST_F(LeaverTest, RegistryOfOwnersFollowsOnlyWhereItWasBuilt) {
  const auto owners = [] {
    return SqliteFile(PATHS::EmailOwnerDb()).Rows("SELECT DISTINCT user_name FROM local_part");
  };
  ASSERT_TRUE(Updater().Trigger());
  EXPECT_FALSE(KLIBCFileExist(PATHS::EmailOwnerDb().c_str()));
  MDOMAIN::UTILS::OwnerRegistryContent content;
  ASSERT_TRUE(MDOMAIN::UTILS::CollectOwners(content) &&
              MDOMAIN::UTILS::ReplaceOwnerRegistry(PATHS::EmailOwnerDb(), content));
  EXPECT_EQ(owners().size(), 2U);
  ASSERT_TRUE(DomainUser().Delete(1, {1001}));
  EXPECT_EQ(owners().size(), 2U);
  ASSERT_TRUE(Updater().Trigger());
  EXPECT_EQ(owners(), StringList{"carol"});
}

}  // namespace
