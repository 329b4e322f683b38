// Taking users out of domains: what goes with them, what failing steps leave, users without a role.
#include <gmock/gmock.h>

#include "lib-domain/api/bcc.h"
#include "tests/control/domain_user_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names

class DomainUserDeletion : public DomainUserControl {
 protected:
  DomainUserDeletion() {
    EXPECT_TRUE(DomainGroup().Create(1, StringList{"staff", "heads"}));
    Add({"alice", "Bob"}, {{1, kAlice, "info", false},
                           {1, kBob, "info", false},
                           {1, kBob, "bob", false},
                           {1, kCarol, "carol", false}});
    DropRoles({{1, kBob}});  // Bob and carol are users through groups alone
    SetAlias({{Alias::MemberKind::User, "alice"}, {Alias::MemberKind::User, "bob"}});
    BCC::getInstance(1)->addBCC(BCC_SENDER, "boss", "alice");
    mailConfSet("smtp_changed_uids", "", true, 0);
  }
  static void DropRoles(const std::vector<std::pair<int, unsigned int>>& pairs) {
    EXPECT_TRUE(DomainUser().RemoveUsersRoles(pairs));
  }
  static size_t BccRules() {
    return SqliteFile(PATHS::SettingsDb()).Rows("SELECT 1 FROM bcc_table").size();
  }
};

TEST_F(DomainUserDeletion, TakesEverythingAndFreesAddresses) {
  EXPECT_TRUE(DomainUser().Delete(1, {kAlice}));
  EXPECT_EQ(Stored(), (StringList{"1 Bob bob", "1 Bob info", "1 carol carol"}));
  EXPECT_EQ(Roles(), StringList{});
  EXPECT_EQ(Removed(), StringList{});
  EXPECT_EQ(AliasMembers(), StringList{"bob"});
  EXPECT_EQ(BccRules(), 0U);
  EXPECT_THAT(Configured("smtp_changed_uids"), testing::EndsWith("1002"));  // the heir, too
  std::string path;
  EXPECT_TRUE(KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::getFile("bcc_db", path));
  EXPECT_EQ(path, PATHS::SettingsDb());
}

TEST_F(DomainUserDeletion, NamesakeInOtherLettersKeepsTheRulesMadeForHim) {
  Run("INSERT INTO user_table VALUES(1009,'ALICE');"
      "INSERT INTO domain_user_alias_table VALUES(1,1009,'al',0)");
  for (const char* name : {"alice", "ALICE"}) {
    BCC::getInstance(1)->addBCC(BCC_SENDER, name, "boss@other.example");
  }
  EXPECT_TRUE(DomainUser().Delete(1, {kAlice}));
  EXPECT_EQ(SqliteFile(PATHS::SettingsDb()).Rows("SELECT name FROM bcc_table"),
            StringList{"ALICE"});
}

TEST_F(DomainUserDeletion, NoGroupBringsARemovedUserBack) {
  GiveRole(kCarol, "domain_admin");  // hides her two groups as long as she has it
  EXPECT_TRUE(DomainUser().Delete(1, {kBob, kCarol}));
  EXPECT_EQ(Removed(), (StringList{"1|2001|1002", "1|2001|1003", "1|2002|1003"}));
  EXPECT_EQ(Rows("SELECT * FROM domain_group_effected_user_view"), StringList{});
  EXPECT_EQ(Stored(), StringList{"1 alice info"});
  EXPECT_TRUE(DomainUser().Delete(1, {}));
  EXPECT_TRUE(DomainUser().Delete(1, {4711}));
}

TEST_F(DomainUserDeletion, StopsAtTheStepThatFails) {
  const FailingStep steps[] = {
      {kBatch, "mdomain_departure_table SELECT", "fail to insert mdomain_departure_table",
       "0 2 alice, bob"},
      {kBatch, "domain_group_removed_user_table", "Failed to RemoveUsersFromDomainGroups",
       "0 2 alice, bob"},
      {kBatch, "DELETE FROM domain_user_role_table", "Failed to DeleteUsersRoles",
       "1 2 alice, bob"},
      {kBatch, "DELETE FROM domain_user_alias_table", "Failed to DeleteUsersAliases",
       "1 2 alice, bob"},
      {"Alias::load", "", "Failed to load alias", "1 0 alice, bob"},
      {kBatch, "DELETE FROM bcc_table", "Failed to deleteBCC", "1 0 alice"},
      {"KORVMailNodeCluster::setFile", "bcc_db", "Fail to set file ", "1 0 alice"},
      {"Config::LoadSettings", "", "Failed to delete Disclamer", "1 0 alice"},
  };
  ExpectStops(
      steps, [] { return DomainUser().Delete(1, {kBob}); },
      [] {  // removal records, aliases of Bob, members of the alias "all"
        return Text(Rows("SELECT (SELECT count(*) FROM domain_group_removed_user_table) || ' ' || "
                         "count(*) || ' ' FROM domain_user_alias_table WHERE uid=1002")) +
               Text(AliasMembers());
      });
  FailOn("KLIBCFileTouch");
  EXPECT_TRUE(DomainUser().Delete(1, {kAlice}));
  EXPECT_TRUE(Logged("Failed to NotifySMTPChangedUIDs"));
  TakeLog();
}

// The notice is forgotten with the departure, unless somebody else was recorded in between.
TEST_F(DomainUserDeletion, TheNoticeIsForgottenAndNobodyElses) {
  const auto on_record = [] {
    return Rows(
        "SELECT uid FROM mdomain_notice_table UNION SELECT id FROM mdomain_departure_table");
  };
  EXPECT_TRUE(DomainUser().Delete(1, {kCarol}));
  EXPECT_EQ(on_record(), StringList{});
  WhenCalled("Alias::load", [] { Run("INSERT OR IGNORE INTO mdomain_notice_table VALUES(1004)"); });
  EXPECT_TRUE(DomainUser().Delete(1, {kBob}));
  EXPECT_EQ(on_record(), StringList{});
  EXPECT_THAT(Configured("smtp_changed_uids"), testing::EndsWith("1004"));
  ClearFaults();
  FailOn("Alias::load");  // what fails behind the notice does not have it given again
  EXPECT_FALSE(DomainUser().Delete(1, {kAlice}));
  EXPECT_EQ(Rows("SELECT uid FROM mdomain_notice_table"), StringList{});
  TakeLog();
}

TEST_F(DomainUserDeletion, UsersWithoutRole) {
  Run("INSERT INTO domain_user_alias_table VALUES(1,1004,'d1',0),(1,1004,'d2',0),(2,1001,'x',0)");
  EXPECT_TRUE(DomainUser().CreateUsersRolesForNonGroupUsers());
  EXPECT_TRUE(Logged("users without roles in domain [1]: [1004]"));
  EXPECT_TRUE(Logged("users without roles in domain [2]: [1001]"));
  EXPECT_EQ(Roles(), (StringList{"1|alice|normal|1", "1|dave|normal|1", "2|alice|normal|1"}));
  TakeLog();
  EXPECT_TRUE(DomainUser().CreateUsersRolesForNonGroupUsers());
  EXPECT_TRUE(TakeLog().empty());

  DropRoles({{1, kDave}, {2, kAlice}});
  FailOn(kBatch, "domain_idx = '1' AND uid IN (1004)");
  EXPECT_FALSE(DomainUser().RemoveUsersWithoutRole());
  EXPECT_TRUE(Logged("Failed to delete users [1004] in domain_id: [1]"));
  EXPECT_TRUE(Logged("Deleted users [1001] in domain_id: [2]"));
  TakeLog();
  ClearFaults();
  EXPECT_TRUE(DomainUser().RemoveUsersWithoutRole());
  EXPECT_EQ(Rows("SELECT 1 FROM domain_user_alias_table WHERE uid=1004 OR domain_idx=2"),
            StringList{});
}

}  // namespace
