// The account system's answers, good and bad, against an account system made of lists.
#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/account_source_internal.h"
#include "lib-domain/sync/membership.h"

#include "tests/support/fake_accounts.h"
#include "tests/support/fixture.h"

namespace {

using namespace MDOMAIN::UTILS;
using MDOMAIN::RECORD::Group;
using MDOMAIN::RECORD::User;
using test::Fake;

class AccountSourceTest : public test::RootTest {
 protected:
  AccountSourceTest() {
    Fake() = {};
    Fake().configuration["account_type"] = "local";
    INTERNAL::ResetAccountConfigurationForTest();
  }
  void UseSource(const std::string& type, const std::string& win, const std::string& ldap) {
    Fake().configuration = {
        {"account_type", type}, {"win_domain_short_name", win}, {"acc_domain_name", ldap}};
    INTERNAL::ResetAccountConfigurationForTest();
  }
};

struct UserCase {
  const char* name;
  std::vector<KORVUser> users;
  long count;
  int error;
  bool want;
  bool want_complete;
  size_t want_users;
  const char* want_line;
};

TEST_F(AccountSourceTest, EnumeratesUsersAndSaysWhetherTheAnswerIsWhole) {
  const KORVUser alice{"alice", 1000, 100, "", ""};
  const KORVUser bob{"bob", 1001, 100, "", ""};
  const KORVUser gone{"gone", KORV_UNKNOWN_ID, 100, "", ""};
  const UserCase cases[] = {
      {"whole", {alice, bob}, -2, 0, true, true, 2, nullptr},
      {"cut short by the source", {alice, bob}, 3, 0, true, false, 2, nullptr},
      {"a user vanished",
       {alice, gone, bob},
       -2,
       0x1D00,
       true,
       false,
       2,
       "Cannot get user [gone], err: [7424], continue getting other users."},
      {"a look-up failed",
       {alice, gone, bob},
       -2,
       0x0100,
       true,
       false,
       1,
       "Cannot get user [gone], err: [256], stop getting other users."},
      {"nobody",
       {},
       -2,
       0,
       false,
       false,
       0,
       "The account system is abnormal, no users are obtained from Zelm."},
      {"the source failed", {alice}, -1, 0, false, false, 1, "Failed to KLIBUserInfoEnum"},
  };
  for (const UserCase& test_case : cases) {
    SCOPED_TRACE(test_case.name);
    Fake().users = test_case.users;
    Fake().user_count = test_case.count;
    Fake().error = test_case.error;
    std::vector<User> users{User(7, "left over")};
    bool complete = true;
    EXPECT_EQ(TryToGetAllZelmUsers(users, complete), test_case.want);
    EXPECT_EQ(complete, test_case.want_complete);
    EXPECT_EQ(users.size(), test_case.want_users);
    EXPECT_TRUE(test_case.want_line == nullptr || Logged(test_case.want_line));
    EXPECT_EQ(Fake().asked_domain, "(null)");
  }
}

struct GroupCase {
  const char* name;
  std::vector<std::string> announced;
  int error;
  bool want;
  bool want_complete;
  size_t want_groups;
  const char* want_line;
};

TEST_F(AccountSourceTest, EnumeratesGroups) {
  Fake().groups = {{"staff", 2000}, {"undescribed", 2001}};
  const GroupCase cases[] = {
      {"whole", {"staff"}, 0, true, true, 1, nullptr},
      {"no description",
       {"staff", "undescribed"},
       0,
       true,
       true,
       2,
       "Failed to KORVGroupDescGet [undescribed]"},
      {"a group vanished",
       {"gone", "staff"},
       0x1800,
       true,
       false,
       1,
       "Cannot get group [gone], err: [6144], continue getting other groups."},
      {"a look-up failed",
       {"staff", "gone"},
       0x0100,
       false,
       false,
       1,
       "Cannot get group [gone], err: [256], stop getting other groups."},
      {"only vanished ones",
       {"gone"},
       0x1800,
       false,
       false,
       0,
       "The account system is abnormal, no groups are obtained from Zelm."},
  };
  for (const GroupCase& test_case : cases) {
    SCOPED_TRACE(test_case.name);
    Fake().announced_groups = test_case.announced;
    Fake().error = test_case.error;
    std::vector<Group> groups;
    bool complete = true;
    EXPECT_EQ(TryToGetAllZelmGroups(groups, complete), test_case.want);
    EXPECT_EQ(complete, test_case.want_complete);
    EXPECT_EQ(groups.size(), test_case.want_groups);
    EXPECT_TRUE(test_case.want_line == nullptr || Logged(test_case.want_line));
    TakeLog();
  }
}

TEST_F(AccountSourceTest, DomainNameGoesToTheSourceOnlyForAWindowsDomain) {
  Fake().users = {{"DOM\\alice", 1000, 100, "", ""}};
  UseSource("win", "DOM", "");
  std::vector<User> users;
  bool complete = false;
  EXPECT_TRUE(TryToGetAllZelmUsers(users, complete));
  EXPECT_EQ(Fake().asked_domain, "DOM");
}

struct NameCase {
  const char* type;
  std::string short_name;
  bool want;
  std::string want_name;
  const char* want_line;
};

TEST_F(AccountSourceTest, ShortNameBecomesTheSourcesOwn) {
  const std::string longest(491, 'x');
  const NameCase cases[] = {
      {"local", "alice", true, "Alice", nullptr},
      {"local", "unknown", true, "unknown", "Convert realname fail unknown"},
      {"local", longest + "cut", true, "Long", nullptr},
      {"win", "alice", true, "DOM\\Alice", nullptr},
      {"win", "OTHER\\bob", true, "OTHER\\bob", "Convert realname fail OTHER\\bob"},
      {"ldap", "alice", true, "alice@dc", "Convert realname fail alice@dc"},
      {"ldap", "alice@elsewhere", true, "alice@elsewhere", "Convert realname fail"},
      {"ldap", longest, false, "before", "_LDAPShortname2FullName convert fail"},
      {"else", "alice", false, "before", "unknown account type"},
  };
  Fake().real_names = {{"alice", "Alice"}, {"DOM\\alice", "DOM\\Alice"}, {longest, "Long"}};
  for (const NameCase& test_case : cases) {
    SCOPED_TRACE(std::string(test_case.type) + " " + test_case.short_name);
    UseSource(test_case.type, "DOM", "dc");
    std::string real_name = "before";
    EXPECT_EQ(ShortName2RealName(true, test_case.short_name, real_name), test_case.want);
    EXPECT_EQ(real_name, test_case.want_name);
    EXPECT_TRUE(test_case.want_line == nullptr || Logged(test_case.want_line));
    Logged("Cannot KORVLDAPCatName");
  }
}

TEST_F(AccountSourceTest, GroupsExpandToShortNamesAndBadOnesCostNoOther) {
  UseSource("win", "DOM", "");
  Fake().groups = {{"DOM\\staff", 2000}, {"DOM\\nested", 2001}, {"DOM\\broken", 2002}};
  Fake().members = {{"DOM\\staff", {"DOM\\alice", "DOM\\nobody"}}, {"DOM\\nested", {"DOM\\alice"}}};
  Fake().real_names = {{"DOM\\alice", "DOM\\Alice"},
                       {"DOM\\staff", "DOM\\staff"},
                       {"DOM\\nested", "DOM\\nested"},
                       {"DOM\\broken", "DOM\\broken"},
                       {"DOM\\absent", "DOM\\absent"}};
  std::vector<std::string> names{"left over"};
  GetUserShortNamesFromGroupShortNames({"staff", "absent", "broken", "nested"}, names);
  EXPECT_EQ(names, (std::vector<std::string>{"Alice", "Alice"}));
  EXPECT_TRUE(Logged("Convert realname fail DOM\\nobody"));
  EXPECT_TRUE(Logged("Failed to KORVGroupGet [DOM\\absent]"));
  EXPECT_TRUE(Logged("Failed to KORVGroupListMember DOM\\broken"));
  EXPECT_TRUE(Logged("Failed to _AppendUserShortNamesBelongToGroupRealName [DOM\\absent]"));
  EXPECT_TRUE(Logged("Failed to _AppendUserShortNamesBelongToGroupRealName [DOM\\broken]"));
}

TEST_F(AccountSourceTest, MergedNamesAreSortedAndEachOnce) {
  std::vector<std::string> merged;
  MergeAndDedupeUserShortNames({"b", "a", "B"}, {"a", "c"}, merged);
  EXPECT_EQ(merged, (std::vector<std::string>{"B", "a", "b", "c"}));
}

TEST_F(AccountSourceTest, ConfigurationIsKeptOnceItWasReadAndNotEmpty) {
  UseSource("local", "", "");
  std::string name = "before";
  Fake().unreadable_keys = {"win_domain_short_name"};
  EXPECT_FALSE(DomainMailConfWinDomainShortNameGet(name));
  EXPECT_EQ(name, "before");
  EXPECT_TRUE(Logged("Get mailconf get fail SZK_SMTP_WIN_DOMAIN_SHORT_NAME"));
  Fake().unreadable_keys.clear();
  EXPECT_TRUE(DomainMailConfWinDomainShortNameGet(name));
  EXPECT_EQ(name, "");
  for (const char* value : {"FIRST", "SECOND"}) {
    Fake().configuration["win_domain_short_name"] = value;
    EXPECT_TRUE(DomainMailConfWinDomainShortNameGet(name));
    EXPECT_EQ(name, "FIRST");
  }
}

TEST(MembershipTest, UnionOfGroupsIgnoresUnknownOnes) {
  const INTERNAL::Gid2UidsMap members = {{1, {10, 11}}, {2, {11, 12}}, {3, {}}};
  EXPECT_EQ(INTERNAL::GetUidsBelongedToGroups(std::vector<unsigned int>{1, 2, 9}, members),
            (std::unordered_set<unsigned int>{10, 11, 12}));
  EXPECT_EQ(INTERNAL::GetUidsBelongedToGroups({Group(2, "g", "")}, members),
            (std::unordered_set<unsigned int>{11, 12}));
  EXPECT_TRUE(INTERNAL::IsUserBelongsToGroups({9, 2}, members, 12));
  EXPECT_FALSE(INTERNAL::IsUserBelongsToGroups({3, 9}, members, 12));
}

}  // namespace
