// Groups in domains: who comes and goes with them, whose status is what, what failing steps leave.
#include "lib-domain/control/domain_group.h"

#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "tests/control/control_fixture.h"

namespace {

using MDOMAIN::CONTROL::DomainGroup;
using MDOMAIN::CONTROL::DomainUser;
using test::StringList;
namespace PATHS = MDOMAIN::PATHS;
using Members = std::vector<std::tuple<unsigned int, std::string, std::string>>;

constexpr unsigned int kStaff = 2001;
constexpr unsigned int kHeads = 2002;

// Alice is in staff, Bob in staff and heads, carol in heads.
class DomainGroupControl : public test::ControlTest {
 protected:
  DomainGroupControl() {
    WriteAccounts(
        "alice:x:1001:100:A:/:/bin/sh\nBob:x:1002:100:B:/:/bin/sh\ncarol:x:1003:100:C:/:/bin/sh\n",
        "staff:x:2001:alice,Bob\nheads:x:2002:Bob,carol\nempty:x:2003:\nusers:x:100:\n");
    for (const char* name : {"one.example", "two.example"}) {
      MDOMAIN::RECORD::Domain domain(-1, name, "", "<a>", true, false, false);
      int domain_idx = -1;
      EXPECT_TRUE(MDOMAIN::CONTROL::Domain().Create(domain, domain_idx));
    }
    EXPECT_TRUE(DomainGroup().Create(1, StringList{"staff", "heads"}));
    std::vector<MDOMAIN::RECORD::DomainUserAlias> aliases = {
        {1, 1001, "info", false}, {1, 1002, "bob", false}, {1, 1003, "info", false}};
    EXPECT_TRUE(DomainUser().CreateUsersAliases(aliases));
    Alias alias(PATHS::AliasDb());
    alias.load();
    alias.set(
        {"all", 1, {{Alias::MemberKind::Group, "staff"}, {Alias::MemberKind::Group, "heads"}}});
    mailConfSet("smtp_changed_uids", "", true, 0);
  }

  static StringList Roles() {
    return Rows(
        "SELECT domain_idx, group_name, role FROM domain_group_role_table NATURAL JOIN "
        "group_table ORDER BY 1, gid");
  }
  static StringList Stored() {
    return Rows("SELECT uid, account_alias, is_duplicated FROM domain_user_alias_table ORDER BY 1");
  }
  static size_t AliasMembers() {
    Alias alias(PATHS::AliasDb());
    alias.load();
    return alias.list().front().members.size();
  }
  static Members StatusOf(unsigned int gid) {
    Members members;
    EXPECT_TRUE(DomainGroup().CheckMemberStatus(1, gid, members));
    return members;
  }
};

TEST_F(DomainGroupControl, CreatingIsAllOrNothingAndResetsRoles) {
  EXPECT_TRUE(DomainGroup().Set({{1, kStaff, "domain_admin"}, {1, kHeads, "king"}}));
  EXPECT_EQ(Roles(), (StringList{"1|staff|domain_admin", "1|heads|normal"}));
  EXPECT_FALSE(DomainGroup().Create(2, StringList{"staff", "none"}));
  EXPECT_TRUE(Logged("Failed to KORVGroupGet [none]"));
  EXPECT_TRUE(Logged("lib-domain/control/domain_group:"));
  TakeLog();
  EXPECT_EQ(Roles().size(), 2U);
  EXPECT_TRUE(DomainGroup().Create(2, StringList{"empty"}));
  EXPECT_TRUE(DomainGroup().Create(1, StringList{"staff"}));
  EXPECT_EQ(Roles(), (StringList{"1|staff|normal", "1|heads|normal", "2|empty|normal"}));
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
  EXPECT_EQ(Stored(), (StringList{"1002|bob|0", "1003|info|0"}));
  EXPECT_EQ(Rows("SELECT uid FROM domain_user_role_table"), StringList{"1002"});
  EXPECT_EQ(Rows("SELECT gid FROM domain_group_removed_user_table"), StringList{"2002"});
  EXPECT_EQ(Roles(), StringList{"1|heads|normal"});
  EXPECT_EQ(AliasMembers(), 1U);
  EXPECT_EQ(Configured("smtp_changed_uids"), "1001");

  EXPECT_TRUE(DomainGroup().Delete(1, {}));
  EXPECT_EQ(AliasMembers(), 1U);
  EXPECT_TRUE(DomainGroup().Delete(1, {kHeads, 4711}));
  EXPECT_EQ(Stored(), StringList{});
  EXPECT_EQ(AliasMembers(), 0U);
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
  const struct {
    const char* function;
    const char* text;
    const char* logged;
    const char* left;  // aliases, own roles, group roles, removal records, alias members
  } cases[] = {
      {"DBHandler::exeCmds", "DELETE FROM domain_user_alias_table", "Failed to DeleteUsersAliases",
       "3 1 2 1 2"},
      {"DBHandler::exeCmds", "DELETE FROM domain_user_role_table", "Failed to DeleteUsersAliases",
       "2 1 2 1 2"},
      {"DBHandler::exeCmds", "DELETE FROM domain_group_role_table", "Failed to DeleteGroupsRoles",
       "2 0 2 1 2"},
      {"DBHandler::exeCmds", "domain_group_removed_user_table",
       "Failed to DeleteMemberRemovedRecord", "2 0 1 1 2"},
      {"DBHandler::exeCmds", "INSERT INTO  domain_user_alias_table",
       "Failed to UpdateDuplicateAlias, domain_id: [1]", "2 0 1 0 2"},
      {"Alias::load", "", "Failed to load alias", "2 0 1 0 2"},
      {"Config::SaveSettings", "", "Failed to delete Disclamer", "2 0 1 0 1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    test::FailOn(c.function, c.text);
    EXPECT_FALSE(DomainGroup().Delete(1, {kStaff}));
    test::ClearFaults();
    EXPECT_TRUE(Logged(c.logged)) << c.logged;
    TakeLog();
    std::string left;
    for (const char* table : {"domain_user_alias_table", "domain_user_role_table",
                              "domain_group_role_table", "domain_group_removed_user_table"}) {
      left += Rows(std::string("SELECT count(*) FROM ") + table).at(0) + " ";
    }
    EXPECT_EQ(left + std::to_string(AliasMembers()), c.left);
  }
  EXPECT_EQ(Configured("smtp_changed_uids"), "");  // told last, and only of a whole deletion
  test::FailOn("KORVFSMkdirP");
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
  const auto removed = [] {
    return Rows("SELECT gid, uid FROM domain_group_removed_user_table ORDER BY 1, 2");
  };
  EXPECT_TRUE(DomainUser().Delete(1, {1001, 1002, 1003}));
  EXPECT_EQ(removed(), (StringList{"2001|1001", "2001|1002", "2002|1002", "2002|1003"}));
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, std::vector<unsigned int>{}));
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(2, {kStaff, kHeads}));
  EXPECT_EQ(removed().size(), 4U);
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, kStaff, {1002}));
  EXPECT_EQ(removed(), (StringList{"2001|1001", "2002|1003"}));
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, std::vector<unsigned int>{kStaff}));
  EXPECT_EQ(removed(), StringList{"2002|1003"});
  EXPECT_TRUE(DomainGroup().RestoreMemberStatus(1, {kStaff, kHeads}));
  EXPECT_EQ(removed(), StringList{});
}

}  // namespace
