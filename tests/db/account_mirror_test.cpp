// The mirror stores: users, groups and their members.
#include <gmock/gmock.h>

#include "lib-domain/db/group.h"
#include "lib-domain/db/user.h"
#include "tests/support/domain_db.h"

namespace {

using MDOMAIN::DB::Group;
using MDOMAIN::DB::User;
using MDOMAIN::DB::UserDBFilter;
using test::StringList;
using Uids = std::vector<unsigned int>;

class MirrorTest : public test::DomainDbTest {
 protected:
  User users_;
  Group groups_;
};

TEST_F(MirrorTest, UsersAreCreatedOnceAndRenamed) {
  ASSERT_TRUE(users_.Create({{1000, "Alice"},
                             {1000, "twice"},
                             {4294967295U, "none"},
                             {1001, ""},
                             {1002, "o'brien"},
                             {0, "zoë"},
                             {4294967294U, "last"}}));
  ASSERT_TRUE(users_.Create({{1000, "renamed"}}));
  EXPECT_EQ(Rows("SELECT * FROM user_table ORDER BY uid"),
            (StringList{"0|zoë", "1000|Alice", "1002|o'brien", "4294967294|last"}));
  ASSERT_TRUE(users_.Set({{1000, "Bob\"; --"}, {9, "nobody"}, {1002, ""}}));
  ASSERT_TRUE(users_.Create({}));
  std::string name = "preset";
  EXPECT_TRUE(users_.GetName(9, name));
  EXPECT_EQ(name, "preset");
  EXPECT_TRUE(users_.GetName(4294967294U, name));
  EXPECT_EQ(name, "last");
  unsigned int uid = 7;
  EXPECT_TRUE(users_.GetUID("nobody", uid));
  EXPECT_EQ(uid, 7U);
  EXPECT_TRUE(users_.GetUID("O'BRIEN", uid));
  EXPECT_EQ(uid, 1002U);
  EXPECT_TRUE(users_.GetUID("bob\"; --", uid));
  EXPECT_EQ(uid, 1000U);
  EXPECT_FALSE(users_.IsExists({1000, "Bob\"; --"}));  // in every case
  std::unordered_map<unsigned int, std::string> names;
  EXPECT_TRUE(users_.GetNames({0, 9, 1002}, names));
  EXPECT_EQ(names.size(), 2U);
  EXPECT_EQ(names[0] + names[1002], "zoëo'brien");

  EXPECT_FALSE(users_.Create({{5, "ok"}, {6, std::string(1000000, 'x')}}));
  EXPECT_TRUE(Logged("fail to insert user_table"));
  EXPECT_TRUE(Rows("SELECT * FROM user_table WHERE uid IN (5,6)").empty());
}

TEST_F(MirrorTest, FiltersChoose) {
  ASSERT_TRUE(users_.Create(
      {{1, "alice"}, {2, "Bob"}, {3, "al_x"}, {4, "o'b"}, {5, "q\"q"}, {6, "x\") OR (\"1\"=\"1"}}));
  const auto list = [this](const UserDBFilter& filter) {
    std::vector<MDOMAIN::RECORD::User> users;
    EXPECT_TRUE(users_.List(filter, users));
    Uids uids;
    for (const auto& user : users) {
      uids.push_back(user.GetUID());
    }
    return uids;
  };
  UserDBFilter filter;
  filter.SetQuery("AL");
  EXPECT_EQ(list(filter), (Uids{1, 3}));
  filter.SetUIDs({3, 2});
  EXPECT_EQ(list(filter), Uids{3});
  filter.SetQuery("'");
  EXPECT_EQ(list(filter), Uids{});
  UserDBFilter named;
  named.SetUserNames({"BOB", "q\"q", "x\") OR (\"1\"=\"1", "nobody"});
  EXPECT_EQ(list(named), (Uids{2, 5, 6}));
  named.SetUIDs({1, 2});
  EXPECT_EQ(list(named), Uids{2});
  // Names of columns: between double quotes they would be those columns and match all users.
  ASSERT_TRUE(users_.Create({{7, "User_Name"}, {8, "rowid"}}));
  UserDBFilter columns;
  columns.SetUserNames({"user_name", "alice", "ROWID", "uid"});
  EXPECT_EQ(list(columns), (Uids{1, 7, 8}));
}

TEST_F(MirrorTest, GroupsAndTheirMembers) {
  ASSERT_TRUE(groups_.Create({{5, "staff", "all o'us"},
                              {5, "x", ""},
                              {4294967295U, "n", ""},
                              {6, "", ""},
                              {7, "dev", ""}}));
  ASSERT_TRUE(groups_.Set({{7, "Dev's", "d"}, {7, "", "ignored"}, {99, "nobody", ""}}));
  EXPECT_EQ(Rows("SELECT * FROM group_table ORDER BY gid"),
            (StringList{"5|staff|all o'us", "7|Dev's|d"}));
  std::string name;
  EXPECT_TRUE(groups_.GetName(7, name));
  EXPECT_EQ(name, "Dev's");
  std::vector<MDOMAIN::RECORD::Group> listed;
  EXPECT_TRUE(groups_.List(MDOMAIN::DB::GroupDBFilter("*"), listed));
  ASSERT_EQ(listed.size(), 2U);
  EXPECT_EQ(listed[0].GetGroupName() + listed[0].GetGroupDesc(), "staffall o'us");

  ASSERT_TRUE(users_.Create({{1, "a"}, {2, "b"}, {3, "c"}}));
  ASSERT_TRUE(groups_.SetGroupToUsers({{5, 3}, {5, 1}, {7, 2}, {5, 2}, {5, 1}}));
  std::map<unsigned int, Uids> all;
  ASSERT_TRUE(groups_.ListAllGroupToUsers(all));
  EXPECT_EQ(all.size(), 2U);
  for (const auto& [gid, members] : all) {
    Uids uids;
    ASSERT_TRUE(groups_.ListGroupToUsers(gid, uids));
    EXPECT_EQ(uids, members) << gid;
  }
  EXPECT_THAT(all[5], testing::UnorderedElementsAre(1, 2, 3));
  Uids gids;
  EXPECT_TRUE(users_.FindBelongingGroups(2, gids));
  EXPECT_THAT(gids, testing::UnorderedElementsAre(5, 7));

  EXPECT_FALSE(groups_.SetGroupToUsers({{7, 1}, {5, 99}}));  // no such user: nothing is written
  EXPECT_TRUE(Logged("fail to update group_to_user_table"));
  EXPECT_EQ(Rows("SELECT uid FROM group_to_user_table WHERE gid=7"), StringList{"2"});

  ASSERT_TRUE(groups_.DeleteGroupToUsers({7}));
  ASSERT_TRUE(users_.Delete({1, 4294967295U}));
  EXPECT_EQ(Rows("SELECT * FROM group_to_user_table ORDER BY uid"), (StringList{"5|2", "5|3"}));
  ASSERT_TRUE(groups_.Delete({5}));
  ASSERT_TRUE(groups_.Delete({}));
  EXPECT_TRUE(Rows("SELECT * FROM group_to_user_table").empty());
}

// 250,000 ids of ten digits are three statements; they go as one batch.
TEST_F(MirrorTest, IdListsLongerThanAStatement) {
  std::vector<MDOMAIN::RECORD::User> users;
  Uids uids;
  for (unsigned int uid = 4000000000U; uid < 4000250000U; ++uid) {
    uids.push_back(uid);
    if (uid % 50000 == 0) {
      users.emplace_back(uid, "u" + std::to_string(uid));
    }
  }
  ASSERT_TRUE(users_.Create(users));
  std::unordered_map<unsigned int, std::string> names;
  EXPECT_TRUE(users_.GetNames(uids, names));
  EXPECT_EQ(names.size(), 5U);
  ASSERT_TRUE(users_.Create({{1, "kept"}}));
  EXPECT_TRUE(users_.Delete(uids));
  EXPECT_EQ(Rows("SELECT user_name FROM user_table"), StringList{"kept"});
}

TEST_F(MirrorTest, StoredValuesThatAreNoIdsAreReported) {
  Run("INSERT INTO user_table VALUES(1,'a'),(-5,'b'); INSERT INTO group_table VALUES(-6,'g','')");
  std::vector<MDOMAIN::RECORD::User> users;
  EXPECT_FALSE(users_.List(UserDBFilter("*"), users));
  EXPECT_TRUE(Logged("lib-domain/db/user:"));
  unsigned int uid = 0;
  EXPECT_FALSE(users_.GetUID("b", uid));
  EXPECT_TRUE(Logged("failed to convert -5 to uid"));
  std::vector<MDOMAIN::RECORD::Group> groups;
  EXPECT_FALSE(groups_.List(MDOMAIN::DB::GroupDBFilter("*"), groups));
  EXPECT_TRUE(Logged("failed to convert -6 to gid"));
}

}  // namespace
