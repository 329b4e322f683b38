// Groups in domains: who comes and goes with them, whose status is what, what failing steps leave.
#include "tests/control/domain_user_fixture.h"

namespace {

using namespace test;  // NOLINT(google-build-using-namespace): the fixture's names

using Members = std::vector<std::tuple<unsigned int, std::string, std::string>>;

constexpr unsigned int kStaff = 2001;
constexpr unsigned int kHeads = 2002;

// Alice is in staff, Bob in staff and heads, carol in heads.
class DomainGroupControl : public DomainUserControl {
 protected:
  DomainGroupControl()
      : DomainUserControl("staff:x:2001:alice,Bob\nheads:x:2002:Bob,carol\nempty:x:2003:\n") {
    EXPECT_TRUE(DomainGroup().Create(1, StringList{"staff", "heads"}));
    Aliases aliases = {
        {1, kAlice, "info", false}, {1, kBob, "bob", false}, {1, kCarol, "info", false}};
    EXPECT_TRUE(DomainUser().CreateUsersAliases(aliases));
    SetAlias({{Alias::MemberKind::Group, "staff"}, {Alias::MemberKind::Group, "heads"}});
    mailConfSet("smtp_changed_uids", "", true, 0);
  }

  static StringList GroupRoles() {
    return Rows(
        "SELECT domain_idx, group_name, role FROM domain_group_role_table NATURAL JOIN "
        "group_table ORDER BY 1, gid");
  }
  static Members StatusOf(unsigned int gid) {
    Members members;
    EXPECT_TRUE(DomainGroup().CheckMemberStatus(1, gid, members));
    return members;
  }
};

TEST_F(DomainGroupControl, CreatingIsAllOrNothingAndResetsRoles) {
  EXPECT_TRUE(DomainGroup().Set({{1, kStaff, "domain_admin"}, {1, kHeads, "king"}}));
  EXPECT_EQ(GroupRoles(), (StringList{"1|staff|domain_admin", "1|heads|normal"}));
  EXPECT_FALSE(DomainGroup().Create(2, StringList{"staff", "none"}));
  EXPECT_TRUE(Logged("Failed to KORVGroupGet [none]"));
  EXPECT_TRUE(Logged("lib-domain/control/domain_group:"));
  TakeLog();
  EXPECT_EQ(GroupRoles().size(), 2U);
  EXPECT_TRUE(DomainGroup().Create(2, StringList{"empty"}));
  EXPECT_TRUE(DomainGroup().Create(1, StringList{"staff"}));
  EXPECT_EQ(GroupRoles(), (StringList{"1|staff|normal", "1|heads|normal", "2|empty|normal"}));
  EXPECT_TRUE(DomainGroup().Create(1, StringList{}));

  std::vector<unsigned int> gids;
  EXPECT_TRUE(DomainGroup().List(1, gids));
  EXPECT_EQ(gids, (std::vector<unsigned int>{kStaff, kHeads}));
  EXPECT_TRUE(DomainGroup().IsExists(2, 2003));
  EXPECT_FALSE(DomainGroup().IsExists(2, kStaff));
}

TEST_F(DomainGroupControl, DeletingSparesMembersOfOtherGroups) {
  Run("INSERT INTO domain_group_removed_user_table VALUES(1,2001,1002),(1,2002,1002);"
      "INSERT INTO domain_user_role_table VALUES(1,1001,'domain_admin',0),(1,1002,'normal',0)");
  EXPECT_TRUE(DomainGroup().Delete(1, {kStaff}));
  // Alice goes though she had a role of her own, and carol's alias is free.
  EXPECT_EQ(Stored(), (StringList{"1 Bob bob", "1 carol info"}));
  EXPECT_EQ(Rows("SELECT uid FROM domain_user_role_table"), StringList{"1002"});
  EXPECT_EQ(Rows("SELECT gid FROM domain_group_removed_user_table"), StringList{"2002"});
  EXPECT_EQ(GroupRoles(), StringList{"1|heads|normal"});
  EXPECT_EQ(AliasMembers(), StringList{"heads"});
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1003");

  EXPECT_TRUE(DomainGroup().Delete(1, {}));
  EXPECT_EQ(AliasMembers(), StringList{"heads"});
  EXPECT_TRUE(DomainGroup().Delete(1, {kHeads, 4711}));
  EXPECT_EQ(Stored(), StringList{});
  EXPECT_EQ(AliasMembers(), StringList{});
  EXPECT_EQ(Configured("smtp_changed_uids"), "1002, 1003");
}

TEST_F(DomainGroupControl, DeletingGroupsTogetherTakesTheMembersOfBoth) {
  EXPECT_TRUE(DomainGroup().Delete(1, {kStaff, kHeads}));
  EXPECT_EQ(Stored(), StringList{});
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001, 1002, 1003");
}

TEST_F(DomainGroupControl, DeletingStopsAtTheStepThatFails) {
  Run("INSERT INTO domain_user_role_table VALUES(1,1001,'normal',0);"
      "INSERT INTO domain_group_removed_user_table VALUES(1,2001,1002)");
  const FailingStep steps[] = {
      {kBatch, "DELETE FROM domain_user_alias_table", "Failed to DeleteUsersAliases", "3 1 2 1 2"},
      {kBatch, "DELETE FROM domain_user_role_table", "Failed to DeleteUsersAliases", "2 1 2 1 2"},
      {kBatch, "DELETE FROM domain_group_role_table", "Failed to DeleteGroupsRoles", "2 0 2 1 2"},
      {kBatch, "domain_group_removed_user_table", "Failed to DeleteMemberRemovedRecord",
       "2 0 1 1 2"},
      {kBatch, "INSERT INTO  domain_user_alias_table",
       "Failed to UpdateDuplicateAlias, domain_id: [1]", "2 0 1 0 2"},
      {"Alias::load", "", "Failed to load alias", "2 0 1 0 2"},
      {"Config::SaveSettings", "", "Failed to delete Disclamer", "2 0 1 0 1"},
  };
  ExpectStops(
      steps, [] { return DomainGroup().Delete(1, {kStaff}); },
      [] {  // aliases, own roles, group roles, removal records, alias members
        std::string counts;
        for (const char* table : {"domain_user_alias_table", "domain_user_role_table",
                                  "domain_group_role_table", "domain_group_removed_user_table"}) {
          counts += Text(Rows(std::string("SELECT count(*) FROM ") + table)) + " ";
        }
        return counts + std::to_string(AliasMembers().size());
      });
  // Every attempt tells of alice, who leaves; carol was told of when she inherited an address.
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001");
  FailOn("KORVFSMkdirP");
  EXPECT_TRUE(DomainGroup().Delete(1, {kHeads}));
  EXPECT_TRUE(Logged("Failed to NotifySMTPChangedUIDs"));
  TakeLog();
}

TEST_F(DomainGroupControl, StatusOfMembers) {
  EXPECT_EQ(StatusOf(kStaff), (Members{{1001, "alice", "normal"}, {1002, "Bob", "normal"}}));
  EXPECT_TRUE(DomainUser().Delete(1, {1002}));
  EXPECT_EQ(StatusOf(kStaff), (Members{{1002, "Bob", "removed"}, {1001, "alice", "normal"}}));
  EXPECT_EQ(StatusOf(kHeads), (Members{{1002, "Bob", "removed"}, {1003, "carol", "normal"}}));
  EXPECT_EQ(StatusOf(2003), Members{});
  EXPECT_EQ(StatusOf(4711), Members{});

  std::vector<unsigned int> uids;
  StringList names;
  EXPECT_TRUE(DomainGroup().ListMembers(1, kStaff, uids));
  EXPECT_TRUE(DomainGroup().ListMembers(1, kHeads, names));
  EXPECT_EQ(uids, std::vector<unsigned int>{1001});
  EXPECT_EQ(names, StringList{"carol"});
}

TEST_F(DomainGroupControl, RestoringForgetsRemovalsInEveryGroup) {
  EXPECT_TRUE(DomainUser().Delete(1, {1001, 1002, 1003}));
  EXPECT_EQ(Removed(), (StringList{"1|2001|1001", "1|2001|1002", "1|2002|1002", "1|2002|1003"}));
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, std::vector<unsigned int>{}));
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(2, {kStaff, kHeads}));
  EXPECT_EQ(Removed().size(), 4U);
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, kStaff, {1002}));
  EXPECT_EQ(Removed(), (StringList{"1|2001|1001", "1|2002|1003"}));
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, std::vector<unsigned int>{kStaff}));
  EXPECT_EQ(Removed(), StringList{"1|2002|1003"});
  Run("INSERT INTO group_to_user_table VALUES(NULL,NULL)");  // is nobody's
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, {kStaff, kHeads}));
  EXPECT_TRUE(Logged("failed to convert  to gid"));
  EXPECT_EQ(Removed(), StringList{});
}

}  // namespace
