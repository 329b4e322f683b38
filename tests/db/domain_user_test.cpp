// The domain user store: effective roles, aliases, lists and what they leave to the caller.
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/domain_user_internal.h"

#include <gmock/gmock.h>

#include "tests/support/domain_db.h"

namespace {

using MDOMAIN::DB::DomainDBFilter;
using MDOMAIN::DB::DomainUser;
using MDOMAIN::RECORD::DomainUserAlias;
using MDOMAIN::RECORD::DomainUserRole;
using Record = MDOMAIN::RECORD::DomainUser;
using test::StringList;
using testing::UnorderedElementsAre;
using Uids = std::vector<unsigned int>;

// "uid name role [controlled]: alias! alias", "!" for a duplicated one.
std::string Describe(const Record& user) {
  std::string text = std::to_string(user.GetUID()) + " " + user.GetUserName() + " " +
                     user.GetRole() + (user.IsUnderGroupControl() ? " controlled:" : ":");
  for (const auto& [alias, duplicated] : user.GetAliasDuplicatedPairs()) {
    text += " " + alias + (duplicated ? "!" : "");
  }
  return text;
}

StringList Describe(const std::vector<Record>& users) {
  StringList texts;
  for (const Record& user : users) {
    texts.push_back(Describe(user));
  }
  return texts;
}

// Domain 1: an admin by an own role, a plain member of an admin group, one by two groups, one taken
// out of the only group, one without anything. Domain 2: user 1 by group.
class DomainUserTest : public test::DomainDbTest {
 protected:
  DomainUserTest() {
    Run("INSERT INTO domain_table VALUES(1,'a.example','','<a>',0),(2,'b.example','','<a>',0);"
        "INSERT INTO user_table VALUES(1,'admin'),(2,'plain'),(3,'both'),(4,'removed'),(5,'none');"
        "INSERT INTO group_table VALUES(50,'admins',''),(51,'staff','');"
        "INSERT INTO group_to_user_table VALUES(50,2),(50,3),(51,3),(51,4),(51,1);"
        "INSERT INTO domain_group_role_table VALUES(1,50,'domain_admin'),(1,51,'normal'),"
        "(2,51,'normal');"
        "INSERT INTO domain_group_removed_user_table VALUES(1,51,4);"
        "INSERT INTO domain_user_role_table VALUES(1,1,'domain_admin',0),(1,2,'normal',1);"
        "INSERT INTO domain_user_alias_table VALUES(1,1,'admin',0),(1,1,'Info',1),(1,1,'o''b',0),"
        "(1,2,'plain',0),(1,3,'both',0),(1,4,'removed',0),(1,5,'none',1),(2,1,'admin',0)");
  }
  DomainUser store_;
};

TEST_F(DomainUserTest, EffectiveRoles) {
  DomainDBFilter filter("domain_view");
  filter.SetDomainIdxs({1});
  filter.SetSortBy("uid");
  filter.SetSortDirection("ASC");
  std::vector<Record> users;
  ASSERT_TRUE(store_.ListDomainUsers(filter, users, true));
  EXPECT_EQ(Describe(users),
            (StringList{"1 admin domain_admin: Info! admin o'b", "2 plain normal: plain",
                        "3 both domain_admin controlled: both"}));
  std::map<int, Uids> without;
  ASSERT_TRUE(store_.GetUsersWithoutRole(without));
  EXPECT_THAT(without[1], UnorderedElementsAre(4, 5));
  EXPECT_EQ(without.size(), 1U);

  users.clear();
  filter.SetDomainIdxs({1, 2});
  ASSERT_TRUE(store_.ListDomainUsers(filter, users, true));
  EXPECT_EQ(Describe(users).size(), 4U);
  EXPECT_THAT(Describe(users), testing::Contains("1 admin normal controlled: admin"));
  users.clear();
  ASSERT_TRUE(store_.List(1, users));
  EXPECT_THAT(Describe(users), testing::Contains("3 both domain_admin: both"));  // not asked for
}

TEST_F(DomainUserTest, PagesAreOfUsersAndTheFilterStaysAsItIs) {
  DomainDBFilter filter;  // names another table
  filter.SetDomainIdxs({1});
  filter.SetSortBy("uid");
  filter.SetLimit(2);
  const std::string before = filter.ComposeQueryCmd();
  int count = 0;
  ASSERT_TRUE(store_.GetDomainUsersCount(filter, count));
  EXPECT_EQ(count, 3);
  std::vector<Record> users;
  ASSERT_TRUE(store_.ListDomainUsers(filter, users, false));
  ASSERT_EQ(users.size(), 2U);
  EXPECT_EQ(users[0].GetUID() * 10 + users[1].GetUID(), 12U);  // a duplicated alias first
  EXPECT_EQ(filter.ComposeQueryCmd(), before);

  users.clear();
  for (const char* query : {"' OR 1=1 --", "PLAIN"}) {
    filter.SetQuery(query);
    EXPECT_TRUE(store_.ListDomainUsers(filter, users, true));
  }
  EXPECT_EQ(Describe(users), StringList{"2 plain normal: plain"});
  filter.SetDomainIdxs({});
  EXPECT_FALSE(store_.ListDomainUsers(filter, users, true));  // users need domains
  EXPECT_TRUE(Logged("failed to ExecSelectCmd"));
  TakeLog();
}

TEST_F(DomainUserTest, ShortQueries) {
  EXPECT_TRUE(store_.IsAliasExist("iNFO"));
  EXPECT_TRUE(store_.IsAliasExist("o'B"));
  EXPECT_FALSE(store_.IsAliasExist("info' OR '1'='1"));
  EXPECT_TRUE(store_.IsExists(1, "ADMIN"));
  EXPECT_FALSE(store_.IsExists(2, "plain"));
  EXPECT_FALSE(store_.IsExists(1, std::string(1000000, 'x')));
  EXPECT_TRUE(Logged("failed to ExecSelectCmd"));

  StringList emails;
  EXPECT_TRUE(store_.ListDuplicatedEmail(1, emails));
  EXPECT_THAT(emails, UnorderedElementsAre("Info", "none"));
  std::unordered_set<unsigned int> removed;
  EXPECT_TRUE(store_.GetAllRemovedUIDs(1, removed));
  EXPECT_THAT(removed, UnorderedElementsAre(4));
  std::vector<DomainUserRole> added;
  EXPECT_TRUE(store_.GetAutoAddedUsersRoles(added));
  ASSERT_EQ(added.size(), 1U);
  EXPECT_EQ(added[0].GetUID(), 2U);
  EXPECT_TRUE(added[0].IsAutoAdded());

  std::map<unsigned int, Uids> gids_by_uid;
  EXPECT_TRUE(store_.FindBeingEffectedGroups(1, {1, 2, 3, 4, 5}, gids_by_uid));
  EXPECT_EQ(gids_by_uid.size(), 1U);  // own roles and removals take the others out
  Uids gids;
  EXPECT_TRUE(store_.FindBeingEffectedGroups(1, 3U, gids));
  EXPECT_THAT(gids, UnorderedElementsAre(50, 51));
  EXPECT_EQ(gids_by_uid[3], gids);
  std::list<std::string> names;
  std::vector<DomainUserAlias> all;
  EXPECT_TRUE(store_.List(1, names) && store_.ListDomainUsersAliases({1, 2}, all));
  EXPECT_THAT(names, UnorderedElementsAre("admin", "plain", "both"));
  EXPECT_EQ(all.size(), 6U);
}

TEST_F(DomainUserTest, AliasesAreReplacedWhole) {
  ASSERT_TRUE(store_.SetUsersAliases({{1, 1, "new", false},
                                      {1, 2, "not valid", false},
                                      {1, 1, "o'neil", true},
                                      {1, 3, "drei", false},
                                      {1, 1, "zoë", false}}));
  EXPECT_TRUE(Logged("invalid user_alias: [not valid], skipped"));
  EXPECT_EQ(Rows("SELECT uid, account_alias, is_duplicated FROM domain_user_alias_table WHERE "
                 "domain_idx=1 AND uid<4 ORDER BY uid, rowid"),
            (StringList{"1|new|0", "1|o'neil|1", "1|zoë|0", "2|plain|0", "3|drei|0"}));
  EXPECT_EQ(Rows("SELECT account_alias FROM domain_user_alias_table WHERE domain_idx=2"),
            StringList{"admin"});
  // An unknown user: nothing of the batch stays, the old aliases come back.
  EXPECT_FALSE(store_.SetUsersAliases({{1, 1, "lost", false}, {1, 99, "nobody", false}}));
  EXPECT_TRUE(Logged("fail to insert domain_to_user_real_table"));
  EXPECT_FALSE(store_.CreateUsersAliases({{1, 1, "lost", false}, {1, 99, "nobody", false}}));
  EXPECT_TRUE(Logged("fail to insert domain_user_alias_table"));
  EXPECT_EQ(Rows("SELECT count(*) FROM domain_user_alias_table WHERE domain_idx=1 AND uid=1"),
            StringList{"3"});
  ASSERT_TRUE(store_.CreateUsersAliases({{1, 5, "two", false}, {1, 5, "a b", false}}));
  ASSERT_TRUE(store_.DeleteUsersAliases(1, {1, 2, 3}));
  EXPECT_EQ(Rows("SELECT account_alias FROM domain_user_alias_table WHERE domain_idx=1"),
            (StringList{"removed", "none", "two"}));
}

TEST_F(DomainUserTest, RolesAndRemovals) {
  ASSERT_TRUE(store_.SetUsersRoles({{1, 3, "normal", false}, {1, 4, "boss", false}}));
  ASSERT_TRUE(store_.CreateUsersRoles({{1, 3, "domain_admin", true}}));
  EXPECT_EQ(Rows("SELECT * FROM domain_user_role_table WHERE uid IN (3,4)"),
            StringList{"1|3|domain_admin|1"});
  ASSERT_TRUE(store_.DeleteUsersRoles({{1, 3}, {2, 1}}));
  ASSERT_TRUE(store_.DeleteUsersRoles(1, {2, 77}));
  EXPECT_EQ(Rows("SELECT uid FROM domain_user_role_table"), StringList{"1"});
  EXPECT_FALSE(store_.SetUsersRoles({{9, 1, "normal", false}}));
  EXPECT_TRUE(Logged("fail to insert domain_to_user_role_table"));
  ASSERT_TRUE(store_.RemoveUsersFromDomainGroups({{1, 50, 3}, {1, 50, 3}, {2, 51, 1}}));
  ASSERT_TRUE(store_.DeleteRemovedRecord(1, {4}));
  EXPECT_EQ(Rows("SELECT * FROM domain_group_removed_user_table ORDER BY 1"),
            (StringList{"1|50|3", "2|51|1"}));
  EXPECT_FALSE(store_.RemoveUsersFromDomainGroups({{1, 99, 3}}));
  EXPECT_TRUE(Logged("fail to delete domain_to_group_role_table"));
}

// Users come in the order of their first rows, and aliases in the order of theirs, duplicated ones
// first. Rows go to the first entry of their domain and user.
TEST_F(DomainUserTest, RowsAreMergedByDomainAndUser) {
  const auto row = [](int domain_idx, unsigned int uid, const char* alias, bool duplicated) {
    return Record(domain_idx, uid, "in " + std::to_string(domain_idx), {{alias, duplicated}}, "");
  };
  std::vector<Record> users = {{2, 3, "first", {{"x", false}, {"y", true}}, ""},
                               {2, 3, "second", {{"z", false}}, ""}};
  MDOMAIN::DB::INTERNAL::_MergeDomainUsers(
      {row(1, 3, "a", false), row(2, 3, "b", true), row(3, 2, "c", false), row(1, 3, "d", true),
       row(1, 2, "e", false), row(1, 3, "f", false), row(1, 3, "g", true), row(2, 3, "h", false)},
      users);
  EXPECT_EQ(Describe(users), (StringList{"3 first : y! b! x h", "3 second : z",
                                         "3 in 1 : d! g! a f", "2 in 3 : c", "2 in 1 : e"}));
}

// More uids than 1,000,000 bytes hold.
TEST_F(DomainUserTest, ListLongerThanAFormattedStatement) {
  Run("WITH RECURSIVE n(i) AS (SELECT 4000000000 UNION ALL SELECT i+1 FROM n LIMIT 100000) INSERT "
      "INTO user_table SELECT i, 'u' || i FROM n;"
      "INSERT INTO domain_user_role_table SELECT 2, uid, 'normal', 0 FROM user_table WHERE uid > 9;"
      "INSERT INTO domain_user_alias_table SELECT 2, uid, 'a', 0 FROM user_table WHERE uid > 9");
  std::vector<Record> users;
  ASSERT_TRUE(store_.List(2, users));
  EXPECT_EQ(users.size(), 100001U);
}

}  // namespace
