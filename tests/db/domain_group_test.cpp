// The domain group store: roles of groups and what membership brings.
#include "lib-domain/db/domain_group.h"

#include <gmock/gmock.h>

#include "tests/support/domain_db.h"

namespace {

using MDOMAIN::DB::DomainDBFilter;
using MDOMAIN::DB::DomainGroup;
using test::StringList;
using testing::UnorderedElementsAre;
using Uids = std::vector<unsigned int>;

// Group 50 holds 1, 2, 3; group 51 holds 2, 4; group 52 holds 5 and is in no domain. User 3 has a
// role of its own in domain 1, user 1 was taken out of group 50 there.
class DomainGroupTest : public test::DomainDbTest {
 protected:
  DomainGroupTest() {
    Run("INSERT INTO domain_table VALUES(1,'a.example','','<a>',0),(2,'b.example','','<a>',0);"
        "INSERT INTO user_table VALUES(1,'a'),(2,'b'),(3,'c'),(4,'d'),(5,'e');"
        "INSERT INTO group_table VALUES(50,'admins','o''all'),(51,'staff',''),(52,'out','');"
        "INSERT INTO group_to_user_table VALUES(50,1),(50,2),(50,3),(51,2),(51,4),(52,5);"
        "INSERT INTO domain_user_role_table VALUES(1,3,'normal',0);"
        "INSERT INTO domain_group_removed_user_table VALUES(1,50,1);"
        "INSERT INTO domain_user_alias_table VALUES(1,1,'a',0),(1,3,'c',0)");
    EXPECT_TRUE(store_.CreateGroupsRoles(
        {{1, 50, "normal"}, {1, 51, "normal"}, {1, 52, "none"}, {2, 51, "normal"}}));
    EXPECT_TRUE(store_.SetGroupsRoles({{1, 50, "domain_admin"}}));
  }
  DomainGroup store_;
};

TEST_F(DomainGroupTest, RolesAreReplacedAndListed) {
  EXPECT_EQ(Rows("SELECT * FROM domain_group_role_table ORDER BY 1,2"),
            (StringList{"1|50|domain_admin", "1|51|normal", "2|51|normal"}));
  DomainDBFilter filter("domain_user_view");
  filter.SetLimit(1);
  int count = 0;
  ASSERT_TRUE(store_.GetDomainGroupsCount(filter, count));
  EXPECT_EQ(count, 2);  // distinct groups
  std::vector<MDOMAIN::RECORD::DomainGroup> groups;
  filter.SetQuery("O'A");
  filter.SetDomainIdxs({1});
  ASSERT_TRUE(store_.ListDomainGroups(filter, groups));
  ASSERT_EQ(groups.size(), 1U);
  EXPECT_EQ(groups[0].GetGroupName() + groups[0].GetGroupDesc() + groups[0].GetRole(),
            "adminso'alldomain_admin");
  EXPECT_TRUE(store_.IsExists(1, 50));
  EXPECT_FALSE(store_.IsExists(2, 50));

  const struct {
    Uids gids;
    std::string role;
  } cases[] = {{{50, 51}, "domain_admin"}, {{51}, "normal"}, {{52}, ""}, {{}, ""}};
  for (const auto& c : cases) {
    std::string role = "preset";
    EXPECT_TRUE(store_.GetResultGroupRole(1, c.gids, role));
    EXPECT_EQ(role, c.role);
  }
  std::unordered_map<unsigned int, std::string> roles;
  EXPECT_TRUE(store_.GetResultGroupRoles(1, roles));
  using Pair = std::pair<const unsigned int, std::string>;
  EXPECT_THAT(roles, UnorderedElementsAre(Pair(1, "domain_admin"), Pair(2, "domain_admin"),
                                          Pair(3, "domain_admin"), Pair(4, "normal")));

  EXPECT_FALSE(store_.SetGroupsRoles({{1, 51, "domain_admin"}, {1, 99, "normal"}}));
  EXPECT_TRUE(Logged("fail to Set domain_to_group_role_table"));
  ASSERT_TRUE(store_.DeleteGroupsRoles(1, {50, 99}));
  ASSERT_TRUE(store_.DeleteMemberRemovedRecord(1, {50}));
  EXPECT_EQ(Rows("SELECT * FROM domain_group_role_table ORDER BY 1"),
            (StringList{"1|51|normal", "2|51|normal"}));
  EXPECT_TRUE(Rows("SELECT * FROM domain_group_removed_user_table").empty());
}

TEST_F(DomainGroupTest, WhoseMembershipHangsOnTheGroups) {
  const struct {
    Uids gids;
    Uids belong;    // by plain membership
    Uids effected;  // own roles and removals counted
  } cases[] = {
      {{50}, {1, 3}, {}}, {{51}, {4}, {4}}, {{50, 51}, {1, 2, 2, 3, 4}, {2, 2, 4}},
      {{52}, {5}, {}},    {{}, {}, {}},
  };
  for (const auto& c : cases) {
    Uids belong;
    Uids effected;
    EXPECT_TRUE(store_.FindUsersBelongToGIDsOnly(1, c.gids, belong));
    EXPECT_TRUE(store_.FindUsersEffectedByGIDsOnly(1, c.gids, effected));
    EXPECT_THAT(belong, testing::UnorderedElementsAreArray(c.belong));
    EXPECT_THAT(effected, testing::UnorderedElementsAreArray(c.effected));
  }
}

TEST_F(DomainGroupTest, MemberStatus) {
  const struct {
    unsigned int uid;
    int status;
  } cases[] = {{3, 0}, {1, 0}, {5, 2}, {99, 2}};
  for (const auto& c : cases) {
    int status = -1;
    EXPECT_TRUE(store_.CheckSingleMemberStatus(1, 50, c.uid, status));
    EXPECT_EQ(status, c.status) << c.uid;
  }
  Run("ALTER TABLE user_table RENAME TO gone");
  int status = -1;
  EXPECT_FALSE(store_.CheckSingleMemberStatus(1, 50, 3, status));
  EXPECT_TRUE(Logged("Failed to _CheckMemberExists, domain_id: [1], uid: [3]"));
  EXPECT_EQ(status, -1);
  TakeLog();
}

}  // namespace
