// Adding, previewing and changing the users of domains, and the pass over the flags.
#include <sqlite3.h>

#include <random>

#include "lib-domain/control/notice.h"
#include "lib-domain/utils/domain_backend_related.h"

#include "platform/include/batch_scope.h"
#include "tests/control/domain_user_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
using MDOMAIN::CONTROL::INTERNAL::Announce;

TEST_F(DomainUserControl, RolesOfAddedUsers) {
  Run("INSERT INTO domain_user_role_table VALUES(1,1002,'domain_admin',0)");
  // "bob" is not the account's spelling, nobody is no person.
  EXPECT_TRUE(DomainUser().CreateFromUser(1, {"alice", "bob", "nobody", "unknown", "Bob"}));
  EXPECT_EQ(Roles(), (StringList{"1|alice|normal|1", "1|Bob|normal|1"}));
  EXPECT_TRUE(DomainUser().CreateFromBackend(2, {{1005, "eve"}, {kAlice, "renamed"}}));
  EXPECT_EQ(Roles().size(), 4U);
  EXPECT_EQ(Rows("SELECT user_name FROM user_table WHERE uid IN (1001,1005)"),
            (StringList{"alice", "eve"}));

  Run("INSERT INTO user_table VALUES(-7,'dave')");  // nobody knows who is meant
  EXPECT_FALSE(DomainUser().CreateFromUser(1, {"dave"}));
  EXPECT_TRUE(Logged("Failed to list users, skip _GetUsersFromUserShortNames"));
  TakeLog();

  FailOn(kBatch, "domain_user_role_table");
  EXPECT_FALSE(DomainUser().CreateFromBackend(1, {{1006, "frank"}}));
  EXPECT_TRUE(Logged("fail to insert domain_to_user_role_table"));
  EXPECT_TRUE(Logged("lib-domain/control/domain_user:"));
  EXPECT_EQ(Rows("SELECT user_name FROM user_table WHERE uid=1006"), StringList{"frank"});
}

TEST_F(DomainUserControl, AliasesThatCollideAreStoredAndFlagged) {
  ASSERT_TRUE(DomainUser().CreateFromUser(1, {"alice", "Bob", "carol"}));
  ASSERT_TRUE(DomainUser().CreateFromUser(2, {"alice"}));
  Run("INSERT INTO domain_user_alias_table VALUES(1,NULL,'info',1)");  // nobody's
  const struct {
    const char* what;
    Aliases aliases;
    const char* stored;
  } cases[] = {
      {"two of one batch, next to each other",
       {{1, kAlice, "info", false}, {1, kBob, "Info", false}},
       "1 alice info, 1 Bob Info!"},
      {"the own one again, another's, another domain",
       {{1, kBob, "INFO", false}, {1, kCarol, "iNFO", false}, {2, kAlice, "info", false}},
       "1 alice info, 1 Bob Info!, 1 carol iNFO!, 2 alice info"},
      {"a repeat, what is no local part",
       {{1, kCarol, "c", false}, {1, kCarol, "C", false}, {1, kCarol, "a b", false}},
       "1 alice info, 1 Bob Info!, 1 carol c, 1 carol iNFO!, 2 alice info"},
  };
  for (const auto& c : cases) {
    Aliases aliases = c.aliases;
    EXPECT_TRUE(DomainUser().CreateUsersAliases(aliases)) << c.what;
    EXPECT_EQ(Text(Stored()), c.stored) << c.what;
  }
  StringList emails;
  EXPECT_TRUE(DomainUser().ListDuplicatedEmail(1, emails));
  EXPECT_EQ(emails.size(), 1U);
  EXPECT_EQ(Configured("smtp_changed_uids"), "1003");
}

TEST_F(DomainUserControl, AddingAliasesLiftsRemovals) {
  ASSERT_TRUE(DomainGroup().Create(1, StringList{"staff"}));
  Run("INSERT INTO domain_group_removed_user_table VALUES(1,2001,1002),(1,2001,1003)");
  Aliases none;
  EXPECT_TRUE(DomainUser().CreateUsersAliases(none));
  EXPECT_EQ(Configured("smtp_changed_uids"), "");

  Aliases aliases = {{1, kBob, "bob", false}};
  FailOn("KLIBCFileTouch");
  EXPECT_TRUE(DomainUser().CreateUsersAliases(aliases));  // a notice is only a notice
  EXPECT_TRUE(Logged("Failed to NotifySMTPChangedUIDs"));
  TakeLog();
  EXPECT_EQ(Removed(), StringList{"1|2001|1003"});
  EXPECT_EQ(Stored(), StringList{"1 Bob bob"});

  FailOn(kBatch, "DELETE FROM domain_group_removed_user_table");
  aliases = {{1, kCarol, "carol", false}};
  EXPECT_FALSE(DomainUser().CreateUsersAliases(aliases));
  EXPECT_TRUE(Logged("Failed to DeleteRemovedRecord for domain_id: [1]"));
  TakeLog();
  EXPECT_EQ(Stored(), StringList{"1 Bob bob"});
}

TEST_F(DomainUserControl, OwnersOfAliases) {
  Add({"alice", "Bob"},
      {{1, kAlice, "O'Brien", false}, {1, kBob, "z", false}, {1, kBob, "a", false}});
  Run("INSERT INTO domain_user_alias_table VALUES(1,1003,'x',1),(1,1004,'x',0),(1,1002,'y',1)");
  const struct {
    const char* alias;
    const char* owner;
  } cases[] = {
      {"o'brien", "alice"},    {"X", "dave"},    {"y", "Bob"}, {"none", ""}, {"", ""},
      {"none' OR 'a'='a", ""}, {"\xC3\xA4", ""},
  };
  for (const auto& c : cases) {
    std::string owner = "untouched";
    EXPECT_TRUE(DomainUser().GetDomainAliasUser(1, c.alias, owner)) << c.alias;
    EXPECT_EQ(owner, c.owner) << c.alias;
  }
  std::string owner;
  EXPECT_TRUE(DomainUser().GetDomainAliasUser(1, std::string("z\0' --", 6), owner));
  EXPECT_EQ(owner, "");
  StringList aliases = {"old"};
  EXPECT_TRUE(DomainUser().GetDomainUserAlias(1, kBob, aliases));
  EXPECT_EQ(aliases, (StringList{"z", "a", "y"}));
  EXPECT_TRUE(DomainUser().GetDomainUserAlias(1, "BOB", aliases));
  EXPECT_EQ(aliases, (StringList{"z", "a", "y"}));
  EXPECT_TRUE(DomainUser().GetDomainUserAlias(2, "o'no", aliases));
  EXPECT_EQ(aliases, StringList{});
}

TEST_F(DomainUserControl, SettingRolesAndAliases) {
  ASSERT_TRUE(DomainGroup().Create(1, StringList{"staff"}));
  Add({"alice", "Bob"}, {{1, kAlice, "alice", false}, {1, kBob, "b1", false}});
  Users users = {User(kAlice, {{"a1", false}, {"A1", false}, {"a2", true}}, "domain_admin"),
                 User(kBob, {{"b2", false}}, "group")};
  Users conflicts;
  EXPECT_TRUE(DomainUser().Set(users, conflicts));
  EXPECT_TRUE(conflicts.empty());
  EXPECT_EQ(Stored(), (StringList{"1 alice a1", "1 alice a2", "1 Bob b2"}));
  EXPECT_EQ(Roles(), StringList{"1|alice|domain_admin|0"});
  std::string role;
  EXPECT_TRUE(DomainUser().GetResultGroupRole(1, kBob, role));
  EXPECT_EQ(role, "normal");
  EXPECT_TRUE(DomainUser().GetResultGroupRole(1, kAlice, role));
  EXPECT_EQ(role, "");
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002");

  // No alias given, no role that is one: the stored ones stay.
  users = {User(kAlice, {}, "king")};
  EXPECT_TRUE(DomainUser().Set(users, conflicts));
  EXPECT_EQ(Stored(), (StringList{"1 alice a1", "1 alice a2", "1 Bob b2"}));
  EXPECT_EQ(Roles(), StringList{"1|alice|domain_admin|0"});
}

TEST_F(DomainUserControl, ConflictsAreToldAndWritten) {
  Add({"alice", "Bob", "carol"},
      {{1, kAlice, "info", false}, {1, kBob, "Info", false}, {1, kCarol, "c", false}});
  const auto names = [](const Users& conflicts) {
    std::string text;
    for (const RECORD::DomainUser& user : conflicts) {
      text += std::to_string(user.GetUID()) + "[";
      for (const std::string& name : user.GetConflictingAccountNames()) {
        text += name;
      }
      text += "]";
    }
    return text;
  };
  const struct {
    const char* what;
    Users users;
    const char* conflicts;
    const char* stored;
  } cases[] = {
      // Saving the owner's record flags the shared alias in the record; the store keeps it clean.
      {"the owner is saved",
       {User(kAlice, {{"info", false}, {"more", false}})},
       "1001[]",
       "1 alice info, 1 alice more, 1 Bob Info!, 1 carol c"},
      {"the other is saved like the owner",
       {User(kBob, {{"INFO", false}})},
       "1002[]",
       "1 alice info, 1 alice more, 1 Bob INFO!, 1 carol c"},
      {"an account's name and a taken alias",
       {User(kCarol, {{"bob", false}, {"more", false}})},
       "1003[]1003[Bob]",
       "1 alice info, 1 alice more, 1 Bob INFO!, 1 carol bob, 1 carol more!"},
      {"two of one call want the same",
       {User(kBob, {{"new", false}}), User(kCarol, {{"New", false}})},
       "1003[]",
       "1 alice info, 1 alice more, 1 Bob new, 1 carol New!"},
      {"given up and taken in one call",
       {User(kBob, {{"b", false}}), User(kCarol, {{"new", false}})},
       "1003[]",
       "1 alice info, 1 alice more, 1 Bob b, 1 carol new"},
      {"an administrator takes it",
       {User(kCarol, {{"info", false}}, "domain_admin")},
       "1003[]",
       "1 alice info!, 1 alice more, 1 Bob b, 1 carol info"},
      {"and keeps it without that role",
       {User(kCarol, {{"info", false}})},
       "1003[]",
       "1 alice info!, 1 alice more, 1 Bob b, 1 carol info"},
  };
  for (const auto& c : cases) {
    Users users = c.users;
    Users conflicts;
    EXPECT_TRUE(DomainUser().Set(users, conflicts)) << c.what;
    EXPECT_EQ(names(conflicts), c.conflicts) << c.what;
    EXPECT_EQ(Text(Stored()), c.stored) << c.what;
  }
}

TEST_F(DomainUserControl, SettingStopsAtTheStepThatFails) {
  Add({"alice"}, {{1, kAlice, "old", false}});
  GiveRole(kBob, "normal");
  const FailingStep steps[] = {
      {kBatch, "DELETE FROM domain_user_role_table", "Failed to DeleteUsersRoles, domain_id: [1]",
       "1|alice|normal|1, 1|Bob|normal|0, 1 alice old"},
      {kBatch, "REPLACE INTO  domain_user_role_table", "Failed to SetUsersRoles",
       "1|alice|normal|1, 1 alice old"},
      {kBatch, "domain_user_alias_table", "Failed to SetUsersAliases",
       "1|alice|domain_admin|0, 1 alice old"},
  };
  ExpectStops(
      steps,
      [] {
        Users users = {User(kAlice, {{"new", false}}, "domain_admin"), User(kBob, {}, "group")};
        Users conflicts;
        return DomainUser().Set(users, conflicts);
      },
      [] { return Text(Roles()) + ", " + Text(Stored()); });
}

// One notice of everybody whose addresses change, when they can be found; none without a commit.
TEST_F(DomainUserControl, NoticesComeAfterTheCommit) {
  Add({"alice", "Bob"}, {{1, kAlice, "old", false}, {2, kAlice, "old", false}});
  Add({}, {{1, kBob, "old", false}});
  SqliteFile other(DbPath());
  StringList seen;
  WhenCalled("KLIBCFileTouch", [&] {
    seen = other.Rows("SELECT account_alias FROM domain_user_alias_table ORDER BY rowid");
  });
  Users users = {User(kAlice, {{"new", false}}), {2, kAlice, "name", {{"x", false}}, "normal"}};
  Users conflicts;
  EXPECT_TRUE(DomainUser().Set(users, conflicts));
  EXPECT_EQ(seen, (StringList{"new", "x", "old"}));
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002");  // Bob inherits

  DBHandler* const handler = MDOMAIN::DB::DomainDBHandler::GetDomainDBHandler();
  const auto notify = [&](bool is_lost) {
    BatchScope scope(handler);
    EXPECT_TRUE(Announce({kCarol}));
    EXPECT_TRUE(Announce({kDave}));
    EXPECT_TRUE(Announce({}));
    Aliases aliases = {{1, kCarol, "c", false}};
    EXPECT_TRUE(DomainUser().CreateUsersAliases(aliases));
    if (is_lost) {
      sqlite3_exec(handler->getDB(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return Configured("smtp_changed_uids");
  };
  EXPECT_EQ(notify(true), "1001, 1002");
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002");
  TakeLog();
  EXPECT_EQ(notify(false), "1001, 1002");
  EXPECT_EQ(Configured("smtp_changed_uids"), "1003, 1004");
  EXPECT_TRUE(MDOMAIN::UTILS::NotifySMTPChangedUIDs({}));
  EXPECT_EQ(Configured("smtp_changed_uids"), "1003, 1004");

  FailOn("mailConfSet");  // remembered, and given with the next one
  EXPECT_TRUE(Announce({kBob}));
  ClearFaults();
  EXPECT_TRUE(Announce({kAlice}));
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002");
  EXPECT_EQ(Rows("SELECT * FROM mdomain_notice_table"), StringList{});
  TakeLog();
}

// Bob has the address and left the group that gave him a role.
TEST_F(DomainUserControl, HolderWithoutRoleKeepsTheAddress) {
  Run("INSERT INTO domain_user_alias_table VALUES(1,1002,'info',0)");
  Add({"alice"}, {{1, kAlice, "info", false}});
  EXPECT_EQ(Stored(), (StringList{"1 alice info!", "1 Bob info"}));
  EXPECT_TRUE(DomainUser().UpdateDuplicateAlias({1}));
  EXPECT_EQ(Stored(), (StringList{"1 alice info!", "1 Bob info"}));
}

TEST_F(DomainUserControl, PassGivesTheSameFlagsForOneDomainAndForSeveral) {
  std::mt19937 random(11);
  const auto number = [&random](int below) { return std::to_string(random() % below); };
  for (int round = 0; round < 40; ++round) {
    std::string rows = "DELETE FROM domain_user_alias_table;DELETE FROM domain_user_role_table;";
    for (int i = 0; i < 12; ++i) {
      const std::string user = std::to_string(1 + i % 2) + ",100" + std::to_string(1 + i / 2 % 4);
      rows += "INSERT INTO domain_user_alias_table VALUES(" + user + ",'a" + number(3) + "'," +
              number(2) + ");";
      rows += random() % 2 == 0
                  ? ""
                  : "INSERT OR IGNORE INTO domain_user_role_table VALUES(" + user + ",'normal',0);";
    }
    Run(rows);
    Run("CREATE TABLE before AS SELECT * FROM domain_user_alias_table");
    ASSERT_TRUE(DomainUser().UpdateDuplicateAlias({1, 2}));
    const StringList together = Stored();
    Run("DELETE FROM domain_user_alias_table;"
        "INSERT INTO domain_user_alias_table SELECT * FROM before ORDER BY rowid;"
        "DROP TABLE before");
    ASSERT_TRUE(DomainUser().UpdateDuplicateAlias({1}) && DomainUser().UpdateDuplicateAlias({2}));
    ASSERT_EQ(Stored(), together) << round;
  }
}

TEST_F(DomainUserControl, PassWritesWhatChangesAndSaysWhatFailed) {
  Add({"alice", "Bob"}, {{1, kAlice, "a", false}, {1, kBob, "a", false}});
  FailOn(kBatch, "domain_user_alias_table");
  EXPECT_TRUE(DomainUser().UpdateDuplicateAlias({}));
  EXPECT_TRUE(DomainUser().UpdateAllDuplicateAlias());  // nothing to write
  GiveRole(kBob, "domain_admin");
  EXPECT_FALSE(DomainUser().UpdateAllDuplicateAlias());
  EXPECT_TRUE(Logged("Failed to SetUsersAliases"));
  TakeLog();
  ClearFaults();
  EXPECT_TRUE(DomainUser().UpdateAllDuplicateAlias());
  EXPECT_EQ(Stored(), (StringList{"1 alice a!", "1 Bob a"}));
}

// Whatever is added, changed and removed: one clean alias among equal ones, and a pass without any
// change of roles takes none from anybody.
TEST_F(DomainUserControl, RandomChangesNeverMoveAnAddress) {
  std::mt19937 random(7);
  const auto number = [&random](int below) { return static_cast<int>(random() % below); };
  const StringList words = {"a", "A", "b", "B", "c", "o'x"};
  const StringList accounts = {"alice", "Bob", "carol", "dave"};
  for (int step = 0; step < 60; ++step) {
    const unsigned int uid = kAlice + number(4);
    switch (number(4)) {
      case 0: {
        Users users = {User(uid, {{words[number(6)], number(2) == 0}, {words[number(6)], false}},
                            number(4) == 0 ? "domain_admin" : "normal")};
        Users conflicts;
        ASSERT_TRUE(DomainUser().Set(users, conflicts));
        break;
      }
      case 1:
        ASSERT_TRUE(DomainUser().Delete(1, {uid}));
        break;
      default: {
        Aliases aliases = {{1, uid, words[number(6)], false},
                           {1, kAlice + number(4), words[number(6)], false}};
        ASSERT_TRUE(DomainUser().CreateFromUser(1, {accounts[uid - kAlice]}));
        ASSERT_TRUE(DomainUser().CreateUsersAliases(aliases));
        break;
      }
    }
    ASSERT_TRUE(DomainUser().CreateUsersRolesForNonGroupUsers());
    ASSERT_TRUE(DomainUser().UpdateAllDuplicateAlias());
    const StringList settled = Stored();
    ASSERT_EQ(Rows("SELECT lower(account_alias) FROM domain_user_alias_table GROUP BY 1 HAVING "
                   "sum(is_duplicated=0)<>1"),
              StringList{})
        << step;
    FailOn(kBatch, "domain_user_alias_table");
    ASSERT_TRUE(DomainUser().UpdateAllDuplicateAlias()) << step;
    ClearFaults();
    ASSERT_EQ(Stored(), settled) << step;
  }
}

TEST_F(DomainUserControl, PreviewShowsAndWritesNothing) {
  Add({"alice"}, {{1, kAlice, "CAROL", false}});
  const StringList stored = Stored();
  const auto preview = [](int domain_idx,
                          const std::vector<std::pair<std::string, std::string>>& entries) {
    Users users;
    EXPECT_TRUE(DomainUser().PreviewDomainUsers(domain_idx, entries, users));
    std::string text;
    for (const RECORD::DomainUser& user : users) {
      const auto pair = user.GetAliasDuplicatedPairs().at(0);
      text += user.GetUserName() + "=" + pair.first + (pair.second ? "! " : " ");
    }
    return text;
  };
  EXPECT_EQ(preview(1, {{"user", "dave"}, {"group", "staff"}, {"user", "carol"}}),
            "Bob=Bob carol=carol! dave=dave ");
  EXPECT_EQ(preview(2, {{"group", "staff"}}), "Bob=Bob carol=carol ");
  // Everybody gets the same: all but the first of them would be flagged.
  Run("UPDATE domain_table SET domain_default_alias_pattern='all<a>' WHERE domain_idx=2");
  EXPECT_EQ(preview(2, {{"user", "Bob"}, {"user", "nobody"}, {"user", "unknown"}}), "Bob=allBob ");
  Run("UPDATE domain_table SET domain_default_alias_pattern='<q>' WHERE domain_idx=2");
  EXPECT_EQ(preview(2, {{"user", "Bob"}}), "Bob=Bob ");
  EXPECT_EQ(preview(1, {}), "");
  EXPECT_EQ(Stored(), stored);

  Users users;
  EXPECT_FALSE(DomainUser().PreviewDomainUsers(3, {{"user", "Bob"}}, users));
  EXPECT_TRUE(Logged("Default alias pattern with wrong format"));
  EXPECT_TRUE(Logged("Failed to _PreviewDomainUsersFromUserShortNames"));
}

}  // namespace
