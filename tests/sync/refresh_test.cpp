// Refreshing from local files, the first domain, publishing.
#include "lib-domain/utils/updater.h"

#include <gmock/gmock.h>
#include "lib-domain/api/domain_group.h"

#include "lib-domain/api/domain_user.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/sync/preview.h"
#include "tests/support/sync_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names
using MDOMAIN::API::Updater;

class UpdaterTest : public SyncTest {
 protected:
  static StringList Users() { return Rows("SELECT uid,user_name FROM user_table ORDER BY uid"); }
  static StringList Groups() { return Rows("SELECT gid,group_name FROM group_table ORDER BY gid"); }
  static StringList Memberships() {
    return Rows("SELECT gid,uid FROM group_to_user_table ORDER BY 1,2");
  }
};

TEST_F(UpdaterTest, MirrorFollowsTheAccountSystem) {
  Updater first;
  ASSERT_TRUE(first.Refresh());
  EXPECT_EQ(Users(), (StringList{"1001|alice", "1002|bob", "1003|carol"}));
  EXPECT_EQ(Groups(), (StringList{"2001|staff"}));
  EXPECT_EQ(Memberships(), (StringList{"2001|1001", "2001|1002"}));
  EXPECT_TRUE(first.GetSummary().users_complete && first.GetSummary().groups_complete);
  EXPECT_EQ(first.GetSummary().new_users, (StringList{"alice", "bob", "carol"}));
  EXPECT_TRUE(
      Logged("[INFO] - [3] zelm_users, [0] db_users, [3] new_users: [alice, bob, carol], "
             "[0] update_users, [0] deleted_uids: []"));

  // Renamed, gone, new; a member left; a group renamed.
  SetAccounts({{"alison", 1001}, {"carol", 1003}, {"o'neil", 1004}},
              {{"team:2001", "alison"}, {"empty:2002", ""}});
  Updater second;
  ASSERT_TRUE(second.Refresh());
  EXPECT_EQ(Users(), (StringList{"1001|alison", "1003|carol", "1004|o'neil"}));
  EXPECT_EQ(Groups(), (StringList{"2001|team", "2002|empty"}));
  EXPECT_EQ(Memberships(), (StringList{"2001|1001"}));
  EXPECT_EQ(second.GetSummary().deleted_uids, (std::vector<unsigned int>{1002}));
  EXPECT_TRUE(
      Logged("[INFO] - [3] zelm_users, [3] db_users, [1] new_users: [o'neil], "
             "[2] update_users, [1] deleted_uids: [1002]"));
  EXPECT_TRUE(
      Logged("[INFO] - [2] zelm_groups, [1] db_groups, [1] new_groups: [empty], "
             "[1] update_groups, [0] deleted_gids: []"));
}

TEST_F(UpdaterTest, AnswerThatWasCutShortDeletesNobody) {
  ASSERT_TRUE(Updater().Refresh());
  SetAccounts({{"alice", 1001}, {"dave", 1004}}, {{"other:2002", "dave"}});
  FailOn("KLIBUserInfoEnum");
  FailOn("KLIBGroupEnum");
  Updater updater;
  EXPECT_TRUE(updater.Refresh());
  EXPECT_EQ(Users(), (StringList{"1001|alice", "1002|bob", "1003|carol", "1004|dave"}));
  EXPECT_EQ(Groups(), (StringList{"2001|staff", "2002|other"}));
  EXPECT_FALSE(updater.GetSummary().users_complete);
  EXPECT_TRUE(updater.GetSummary().deleted_uids.empty());
  EXPECT_TRUE(
      Logged("Failed to successfully obtain all zelm users, ignore the process of "
             "deleting users"));
  TakeLog();

  // A line that is no account: the rest counts, and nobody goes.
  ClearFaults();
  Write("/etc/passwd", "alice:x:1001:1500::/:/bin/sh\nbroken line\n");
  Write("/etc/group", "late:x:2003:alice\nbroken line\n");
  EXPECT_TRUE(updater.Refresh());
  EXPECT_EQ(Users().size(), 4U);
  EXPECT_EQ(Groups(), (StringList{"2001|staff", "2002|other", "2003|late"}));
  EXPECT_TRUE(
      Logged("Failed to successfully obtain all zelm groups, ignore the process of "
             "deleting groups"));
  TakeLog();

  Write("/etc/passwd", "");
  EXPECT_FALSE(updater.Refresh());
  EXPECT_EQ(Users().size(), 4U);
  TakeLog();

  SetAccounts({{"alice", 1001}}, {{"other:2002", "alice"}});
  EXPECT_TRUE(updater.Refresh());
  EXPECT_EQ(Users(), (StringList{"1001|alice"}));
  EXPECT_EQ(Groups(), (StringList{"2002|other"}));
}

TEST_F(UpdaterTest, FailingStepLeavesWhatWasDoneBefore) {
  const auto refresh = [] { return Updater().Refresh(); };
  const auto left = [] { return Text(Users()) + ", " + Text(Groups()); };
  const std::string first = "1001|alice, 1002|bob, 1003|carol, ";
  const FailingStep nothing_mirrored[] = {
      {kBatch, "INTO  group_table", "Failed to Create groups\nFailed to _RefreshGroups", first}};
  ExpectStops(nothing_mirrored, refresh, left);
  ASSERT_TRUE(refresh());

  SetAccounts({{"alison", 1001}, {"dave", 1004}}, {{"team:2001", ""}});
  const FailingStep changed[] = {
      {kBatch, "INTO  user_table", "Failed to Create users", first + "2001|staff"},
      {kBatch, "UPDATE user_table", "Failed to Set users", first + "1004|dave, 2001|staff"},
      {kBatch, "DELETE FROM user_table", "Failed to Delete users",
       "1001|alison, 1002|bob, 1003|carol, 1004|dave, 2001|staff"},
      {kBatch, "UPDATE group_table", "Failed to Set groups", "1001|alison, 1004|dave, 2001|staff"},
  };
  ExpectStops(changed, refresh, left);
  SetAccounts({{"alison", 1001}}, {{"other:2002", ""}});
  const FailingStep gone[] = {{kBatch, "DELETE FROM group_table", "Failed to Delete groups",
                               "1001|alison, 2001|staff, 2002|other"}};
  ExpectStops(gone, refresh, left);
}

TEST_F(UpdaterTest, NewAccountsGoToTheDomainsThatAskForThem) {
  const int adding = CreateDomain("adding.example", true, "<2a>");
  const int closed = CreateDomain("closed.example", false);
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Members(adding), (StringList{"alice normal al", "bob normal bo", "carol normal ca"}));
  EXPECT_TRUE(Members(closed).empty());
  // Members of a group of the domain get no role of their own.
  const auto roles = [] {
    return Rows("SELECT domain_idx,uid,is_auto_added FROM domain_user_role_table ORDER BY 2");
  };
  EXPECT_EQ(roles(), (StringList{"1|1003|1"}));

  // Only new accounts are added; a user who joins a group of the domain loses the own role.
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}},
              {{"staff:2001", "alice,carol"}});
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Members(adding),
            (StringList{"alice normal al", "bob normal bo", "carol normal ca", "dave normal da"}));
  EXPECT_EQ(roles(), (StringList{"1|1002|1", "1|1004|1"}));
}

TEST_F(UpdaterTest, RemovedMembersStayRemovedUntilTheyAreRestored) {
  const int domain_idx = CreateDomain("example.com", true);
  ASSERT_TRUE(Updater().Refresh());
  ASSERT_TRUE(MDOMAIN::API::DomainUser().Delete(domain_idx, {1001, 1003}));
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Members(domain_idx), (StringList{"bob normal bob"}));
  ASSERT_TRUE(MDOMAIN::API::DomainGroup().RestoreMemberStatus(domain_idx, {2001}));
  EXPECT_EQ(Members(domain_idx), (StringList{"alice normal alice", "bob normal bob"}));
}

// An account made anew under a new id while the answer is incomplete: the mirror then has two users
// of one name, and only the new one is to be added.
TEST_F(UpdaterTest, UsersOfOneShortNameAreToldApart) {
  const int domain_idx = CreateDomain("example.com", true);
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}}, {{"staff:2001", "bob"}});
  ASSERT_TRUE(Updater().Refresh());
  Run("UPDATE domain_user_role_table SET role = 'domain_admin', is_auto_added = 0 WHERE uid = "
      "1001");
  ASSERT_TRUE(MDOMAIN::API::DomainUser().Delete(domain_idx, {1002}));
  SetAccounts({{"alice", 1011}, {"bob", 1012}, {"carol", 1003}}, {{"staff:2001", ""}});
  FailOn("KLIBUserInfoEnum");
  ASSERT_TRUE(Updater().Refresh());
  TakeLog();
  EXPECT_EQ(Rows("SELECT uid,role,account_alias,is_duplicated FROM domain_user_view ORDER BY uid"),
            (StringList{"1001|domain_admin|alice|0", "1003|normal|carol|0", "1011|normal|alice|1",
                        "1012|normal|bob|0"}));
  EXPECT_EQ(Rows("SELECT uid FROM domain_group_removed_user_table"), (StringList{"1002"}));

  ClearFaults();
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Members(domain_idx),
            (StringList{"alice normal alice", "bob normal bob", "carol normal carol"}));
}

// Who was mirrored by a run that could not add them is added by a later one, and the tables for
// that go when it is done.
TEST_F(UpdaterTest, WhoCouldNotBeAddedIsAddedLater) {
  const int bad = CreateDomain("bad.example", true, "<99999999999a>");
  const int good = CreateDomain("good.example", true);
  const auto tables = [] {
    return Rows("SELECT name FROM sqlite_master WHERE name LIKE 'joining%table'").size();
  };
  const StringList all = {"alice normal alice", "bob normal bob", "carol normal carol"};
  Updater failing;
  EXPECT_FALSE(failing.Refresh());
  EXPECT_TRUE(Logged("Failed to Preview domain users, domain_id: [1]"));
  TakeLog();
  EXPECT_EQ(Members(good), all);
  ASSERT_EQ(failing.GetSummary().failures.size(), 1U);
  EXPECT_EQ(failing.GetSummary().failures[0].domain_idx, bad);
  EXPECT_EQ(tables(), 2U);

  // Taken out of the good domain in between: that domain was done with carol.
  ASSERT_TRUE(MDOMAIN::API::DomainUser().Delete(good, {1003}));
  Run("UPDATE domain_table SET domain_default_alias_pattern = '<a>'");
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Members(bad), all);
  EXPECT_EQ(Members(good), (StringList{"alice normal alice", "bob normal bob"}));
  EXPECT_EQ(tables(), 0U);

  const struct {
    const char* failing_batch;
    const char* new_user;
  } steps[] = {{"UPDATE group_table", "dave"},
               {"UPDATE user_table", "erin"},
               {"INTO  domain_user_alias_table", "frank"},
               {"INTO  domain_user_role_table", "grace"}};
  Accounts accounts = {{"alice", 1001}, {"bob", 1002}, {"carol", 1003}};
  for (const auto& step : steps) {
    SCOPED_TRACE(step.failing_batch);
    accounts[0].first += "x";  // renamed, so that there is an update
    accounts.emplace_back(step.new_user, 1010 + static_cast<int>(accounts.size()));
    SetAccounts(accounts, {{"staff:2001", "bob"}});
    FailOn(kBatch, step.failing_batch);
    EXPECT_FALSE(Updater().Refresh());
    ClearFaults();
    TakeLog();
    ASSERT_TRUE(Updater().Refresh());
    const std::string member = std::string(step.new_user) + " normal " + step.new_user;
    EXPECT_THAT(Members(bad), testing::Contains(member));
    EXPECT_THAT(Members(good), testing::Contains(member));
    EXPECT_EQ(tables(), 0U);
  }
}

TEST_F(UpdaterTest, FirstDomainThatIsCreatedAgainGetsEverybody) {
  MDOMAIN::RECORD::Domain domain(-1, "example.com", "", "<99999999999a>", true, false, false);
  int domain_idx = -1;
  EXPECT_FALSE(MDOMAIN::API::Domain().CreatePrimary(domain, domain_idx));
  TakeLog();
  ASSERT_TRUE(Rows("SELECT * FROM domain_table").empty());
  EXPECT_TRUE(Updater().Refresh());  // nobody could take them
  domain = MDOMAIN::RECORD::Domain(-1, "example.com", "", "<a>", true, false, false);
  ASSERT_TRUE(MDOMAIN::API::Domain().CreatePrimary(domain, domain_idx));
  EXPECT_EQ(Members(domain_idx),
            (StringList{"alice normal alice", "bob normal bob", "carol normal carol"}));
}

// Adding a group to one domain mirrors its members, who are still to be added to the others.
TEST_F(UpdaterTest, MembersMirroredWithAGroupAreStillNew) {
  const int adding = CreateDomain("adding.example", true);
  const int closed = CreateDomain("closed.example", false);
  ASSERT_TRUE(Updater().Refresh());
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carol", 1003}, {"dave", 1004}},
              {{"staff:2001", "alice,dave"}});
  ASSERT_TRUE(MDOMAIN::CONTROL::DomainGroup().Create(closed, StringList{"staff"}));
  Run("DELETE FROM domain_group_role_table WHERE domain_idx = 1");
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_THAT(Members(adding), testing::Contains("dave normal dave"));
}

TEST_F(UpdaterTest, LimitSparesWhoIsGone) {
  const struct {
    const char* name;
    int known;
    int gone;
    MDOMAIN::UTILS::DeletionLimit limit;
    bool spared;
  } cases[] = {
      {"no limit", 20, 19, {}, false},         {"five of six", 6, 5, {500, 10}, false},
      {"six of seven", 7, 6, {500, 10}, true}, {"a tenth", 60, 6, {500, 10}, false},
      {"more", 60, 7, {500, 10}, true},        {"any share", 60, 7, {500, 0}, false},
      {"the number", 60, 3, {3, 0}, false},    {"one more", 60, 4, {3, 0}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Accounts users;
    SyncTest::Groups groups;
    for (int i = 0; i < c.known; ++i) {
      users.emplace_back("u" + std::to_string(i), 1100 + i);
      groups.emplace_back("g" + std::to_string(i) + ":" + std::to_string(2100 + i), "");
    }
    SetAccounts(users, groups);
    ASSERT_TRUE(Updater().Refresh());
    SetAccounts({users.begin() + c.gone, users.end()}, {groups.begin() + c.gone, groups.end()});
    MDOMAIN::UTILS::RefreshSummary look;
    EXPECT_TRUE(MDOMAIN::UTILS::PreviewRefresh(c.limit, look));
    Updater updater;
    updater.SetDeletionLimit(c.limit);
    EXPECT_TRUE(updater.Refresh());
    const auto& summary = updater.GetSummary();
    const size_t spared = c.spared ? static_cast<size_t>(c.gone) : 0;
    EXPECT_EQ(summary.spared_users.size(), spared);
    EXPECT_EQ(summary.spared_groups.size(), spared);
    EXPECT_EQ(look.spared_users, summary.spared_users);
    EXPECT_EQ(look.deleted_gids, summary.deleted_gids);
    EXPECT_EQ(Users().size(), static_cast<size_t>(c.spared ? c.known : c.known - c.gone));
    if (c.spared) {
      EXPECT_EQ(summary.spared_users.front(), "u0");
      EXPECT_TRUE(Logged("are gone, above the limit, ignore the process of deleting groups"));
      TakeLog();
    }
  }
}

TEST_F(UpdaterTest, RenamedUidIsNamedWithWhatItKeeps) {
  const int domain_idx = CreateDomain("example.com", true);
  ASSERT_TRUE(Updater().Refresh());
  Run("INSERT INTO domain_user_alias_table VALUES(1,1003,'boss',0);"
      "UPDATE domain_user_role_table SET role = 'domain_admin' WHERE uid = 1003");
  SetAccounts({{"alice", 1001}, {"bob", 1002}, {"carl", 1003}});
  MDOMAIN::UTILS::RefreshSummary look;
  EXPECT_TRUE(MDOMAIN::UTILS::PreviewRefresh(look));
  Updater updater;
  EXPECT_TRUE(updater.Refresh());
  for (const auto* summary :
       {static_cast<const MDOMAIN::UTILS::RefreshSummary*>(&look), &updater.GetSummary()}) {
    ASSERT_EQ(summary->renamed_users.size(), 1U);
    const auto& user = summary->renamed_users[0];
    EXPECT_EQ(user.old_name + " " + user.name, "carol carl");
    ASSERT_EQ(user.keeps.size(), 1U);
    EXPECT_EQ(user.keeps[0].GetRole(), "domain_admin");
    EXPECT_EQ(user.keeps[0].GetAliasDuplicatedPairs().size(), 2U);
    EXPECT_EQ(summary->domain_names.at(domain_idx), "example.com");
  }
}

// Whom the refresh deletes and who inherits their addresses; told when others can see the rows.
TEST_F(UpdaterTest, RefreshTellsAfterTheCommitWhoseAddressesChanged) {
  CreateDomain("example.com", true, "<1a>info");
  SetAccounts({{"aa", 1001}, {"ab", 1002}, {"carol", 1003}}, {{"staff:2001", ""}});
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002, 1003");
  SetAccounts({{"ab", 1002}, {"carol", 1003}, {"dave", 1004}}, {{"staff:2001", ""}});
  SqliteFile other(DbPath());
  StringList seen;
  WhenCalled("KLIBCFileTouch", [&] {
    seen = other.Rows("SELECT uid, is_duplicated FROM domain_user_alias_table ORDER BY 1");
  });
  ASSERT_TRUE(Updater().Refresh());
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002, 1004");
  EXPECT_EQ(seen, (StringList{"1002|0", "1003|0", "1004|0"}));
}

// Too long, or cut within a character: the account name takes its place; where that is none either
// the user has a role, no address, and is named.
TEST_F(UpdaterTest, AliasThatIsNoLocalPartGivesWayToTheAccountName) {
  const std::string name_of_70(70, 'n');
  const int domain_idx = CreateDomain("example.com", true, "<a>" + std::string(62, 'x'));
  SetAccounts({{"bob", 1002}, {name_of_70, 1003}}, {{"staff:2001", ""}});
  Updater updater;
  EXPECT_TRUE(updater.Refresh());
  EXPECT_EQ(Rows("SELECT uid, account_alias FROM domain_user_alias_table"), StringList{"1002|bob"});
  EXPECT_EQ(Rows("SELECT uid FROM domain_user_role_table ORDER BY 1"),
            (StringList{"1002", "1003"}));
  EXPECT_EQ(updater.GetSummary().without_address.at(domain_idx), StringList{name_of_70});
  EXPECT_TRUE(Logged("The alias pattern of domain_id: [1] gives no local part for [bob]"));
  EXPECT_TRUE(Logged("Zelm account name gives a local part for [" + name_of_70 + "]"));
  TakeLog();
}

TEST_F(UpdaterTest, FirstDomainComesFromTheOlderSettings) {
  const struct {
    const char* name;
    std::map<std::string, std::string> configuration;
    StringList want_domains;
    StringList want_additional;
  } cases[] = {
      {"no main domain", {}, {}, {}},
      {"the default name", {{"smtp_main_domain", "localdomain"}}, {}, {}},
      {"unpublished",
       {{"smtp_main_domain", "example.com"},
        {"smtp_canonical_domain", "example.org, EXAMPLE.com, dotless, example.net"}},
       {"1|example.com|1"},
       {"example.net", "example.org"}},
      {"published",
       {{"smtp_main_domain", "example.com"},
        {"virtual_multiple_domain", "4/example.com, 5/example.org"},
        {"additional_domain-4", "a.example"},
        {"smtp_canonical_domain", "ignored.example"}},
       {"1|example.com|1"},
       {"a.example"}},
  };
  for (const auto& test_case : cases) {
    SCOPED_TRACE(test_case.name);
    MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler();
    unlink(DbPath().c_str());
    for (const char* key : {"smtp_main_domain", "smtp_canonical_domain", "virtual_multiple_domain",
                            "additional_domain-4"}) {
      const auto value = test_case.configuration.find(key);
      mailConfSet(key, value == test_case.configuration.end() ? "" : value->second, true, 0);
    }
    EXPECT_TRUE(Updater().InitDBIfNotExists());
    EXPECT_EQ(Rows("SELECT domain_idx,domain_name,is_primary FROM domain_view"),
              test_case.want_domains);
    EXPECT_EQ(Rows("SELECT additional_domain FROM domain_to_additional_domain_table ORDER BY 1"),
              test_case.want_additional);
    Logged("Domain name [dotless] without \".\" is not valid");
    if (!test_case.want_domains.empty()) {
      EXPECT_EQ(Members(1).size(), 3U);
      EXPECT_EQ(Rows("SELECT gid,role FROM domain_group_role_table"), (StringList{"2001|normal"}));
      EXPECT_EQ(Configured("virtual_multiple_domain"), "1/example.com");
      // With a domain present nothing more happens, whatever the settings say.
      mailConfSet("smtp_main_domain", "other.example", true, 0);
      EXPECT_TRUE(Updater().InitDBIfNotExists());
      EXPECT_EQ(Rows("SELECT count(*) FROM domain_table"), (StringList{"1"}));
    }
  }
}

TEST_F(UpdaterTest, FirstDomainWithABadNameIsRefused) {
  mailConfSet("smtp_main_domain", "dotless", true, 0);
  Updater updater;
  EXPECT_FALSE(updater.InitDBIfNotExists());
  EXPECT_EQ(updater.GetErrorCode(), 5633U);
  TakeLog();
  EXPECT_TRUE(Rows("SELECT * FROM domain_table").empty());
}

TEST_F(UpdaterTest, PublishesWhatTheServicesRead) {
  CreateDomain("example.com", false);
  CreateDomain("b\u00fccher.example", false);
  CreateDomain("example.net", false);
  MDOMAIN::API::Domain domains;
  ASSERT_TRUE(domains.CreateAdditionalDomains(2, {"b.example", "a.example"}));
  ASSERT_TRUE(domains.SetPrimary(2));
  mailConfSet("additional_domain-x", "", true, 0);
  mailConfSet("unrelated", "kept", true, 0);
  ASSERT_TRUE(domains.Delete({3}));
  EXPECT_EQ(Configured("virtual_multiple_domain"), "1/example.com, 2/b\u00fccher.example");
  EXPECT_EQ(Configured("smtp_main_domain"), "b\u00fccher.example");
  EXPECT_EQ(Configured("additional_domain-2"), "a.example, b.example");
  EXPECT_EQ(Configured("unrelated"), "kept");
  std::vector<std::string> keys;
  ASSERT_TRUE(KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::ls("virtual_domain", keys));
  EXPECT_EQ(keys, (StringList{"additional_domain-1", "additional_domain-2"}));
  std::string path;
  EXPECT_TRUE(
      KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::getFile("mailserver_domain_db", path));
  EXPECT_EQ(path, DbPath());

  // Names that another program left of a domain that is gone are nobody's.
  for (const char* idx : {"0", "9"}) {
    Run("INSERT INTO domain_to_additional_domain_table VALUES (" + std::string(idx) +
        ", 'left.example')");
    ASSERT_TRUE(Updater().Trigger());
    EXPECT_EQ(Configured("additional_domain-1"), "");
    EXPECT_EQ(Configured("additional_domain-2"), "a.example, b.example");
    EXPECT_EQ(Configured("smtp_main_domain"), "b\u00fccher.example");
  }

  Run("DELETE FROM domain_table");
  Updater emptying;
  emptying.AllowEmptyPublication(true);
  ASSERT_TRUE(emptying.Trigger());
  EXPECT_EQ(Configured("virtual_multiple_domain"), "");
  EXPECT_EQ(Configured("smtp_main_domain"), "");
}

TEST_F(UpdaterTest, PublishingWhatIsPublishedWritesNothing) {
  CreateDomain("example.com", false);
  const std::string store = MDOMAIN::PATHS::EtcDir() + "keystore.db";
  SqliteFile other(store);
  const StringList before = other.Rows("PRAGMA data_version");
  ASSERT_TRUE(Updater().Trigger());
  EXPECT_EQ(other.Rows("PRAGMA data_version"), before);
  CreateDomain("example.org", false);
  EXPECT_NE(other.Rows("PRAGMA data_version"), before);
}

TEST_F(UpdaterTest, PublishingSaysWhichStepFailed) {
  CreateDomain("example.com", false);
  CreateDomain("example.org", false);
  Run("UPDATE domain_table SET domain_name = 'example.net' WHERE domain_idx = 2");
  mailConfSet("additional_domain-9", "", true, 0);
  const FailingStep steps[] = {
      {"setFile", "", "Failed to set file ", ""},
      {"mailConfSet", "additional_domain-2",
       "Failed to mailConfSet\nFailed to _DomainAdditionalDomainsToRedis, domain_id: [2]\n"
       "Failed to update info to redis",
       ""},
      {"mailConfSet", "virtual_multiple", "Failed to mailConfSet\nFailed to _DomainsToRedis", ""},
      {"mailConfSet", "main_domain", "Failed to mailConfSet\nFailed to _PrimaryDomainToRedis", ""},
      {"ls", "", "Failed to list backend tree virtual_domain\nFailed to _RemoveUnusedRedisKey", ""},
      {"removeKey", "",
       "Failed to remove key: 'additional_domain-9'\nFailed to _RemoveUnusedRedisKey", ""},
  };
  ExpectStops(
      steps,
      [] {
        FailOn("mailConfChange");
        return Updater().Trigger();
      },
      [] { return ""; });
  // Written together or one by one, the result is the same.
  FailOn("mailConfChange");
  EXPECT_TRUE(Updater().Trigger());
  EXPECT_EQ(Configured("virtual_multiple_domain"), "1/example.com, 2/example.net");

  // No failure of the step, and one of the call: what it should publish is not.
  FailOn("isClusterHealth");
  FailOn("setFile");
  EXPECT_TRUE(MDOMAIN::UTILS::Updater().Trigger());
  EXPECT_TRUE(Logged("Cluster is not health, so don't do trigger"));
  EXPECT_FALSE(Updater().Trigger());
  EXPECT_TRUE(Logged("Failed to Trigger"));
}

}  // namespace
