// The account system's answers, good and bad, against an account system made of lists.
#include "lib-domain/accounts/account_source.h"
#include "lib-domain/accounts/account_source_internal.h"
#include "lib-domain/sync/membership.h"
#include "tests/support/fake_accounts.h"

namespace {

using namespace MDOMAIN::UTILS;
using MDOMAIN::RECORD::Group;
using MDOMAIN::RECORD::User;
using test::Fake;

using Names = std::vector<std::string>;

class AccountSourceTest : public test::AccountsTest {};

// One answer of the source to an enumeration, in which "gone" cannot be looked up.
struct Enumeration {
  std::string kind;
  Names listed;
  long count;  // that the source says it holds; -2: as many as it lists
  int error;   // of the look-up
  bool done;
  bool complete;
  size_t found;
  std::string said;  // besides what is said of "gone"
};

template <typename Record>
void Check(const Enumeration& c, bool (*enumerate)(std::vector<Record>&, bool&)) {
  std::vector<Record> found(5);
  bool complete = true;
  EXPECT_EQ(enumerate(found, complete), c.done);
  EXPECT_EQ(complete, c.complete);
  EXPECT_EQ(found.size(), c.found);
  EXPECT_EQ(Fake().asked_domain, "(null)");
}

TEST_F(AccountSourceTest, EnumerationsSayWhetherTheAnswerIsWhole) {
  const std::string no_users = "The account system is abnormal, no users are obtained from Zelm.";
  const std::string no_groups = "The account system is abnormal, no groups are obtained from Zelm.";
  const std::string no_description = "Failed to KORVGroupDescGet [undescribed]";
  const Enumeration cases[] = {
      {"user", {"alice", "bob"}, -2, 0, true, true, 2, ""},
      {"user", {"alice", "bob"}, 3, 0, true, false, 2, ""},
      {"user", {"alice", "gone", "bob"}, -2, KLIB_ERR_NO_SUCH_USER, true, false, 2, ""},
      {"user", {"alice", "gone", "bob"}, -2, KLIB_ERR_FAILED, true, false, 1, ""},
      {"user", {}, -2, 0, false, false, 0, no_users},
      {"user", {"alice"}, -1, 0, false, false, 1, "Failed to KLIBUserInfoEnum"},
      {"group", {"staff", "undescribed"}, -2, 0, true, true, 2, no_description},
      {"group", {"gone", "staff"}, -2, KLIB_ERR_NO_SUCH_GROUP, true, false, 1, ""},
      {"group", {"staff", "gone"}, -2, KLIB_ERR_FAILED, false, false, 1, ""},
      {"group", {"gone"}, -2, KLIB_ERR_NO_SUCH_GROUP, false, false, 0, no_groups},
  };
  Fake().groups = {{"staff", 2000}, {"undescribed", 2001}};
  for (const Enumeration& c : cases) {
    SCOPED_TRACE(c.kind + "s " + testing::PrintToString(c.listed) + " " + c.said);
    Fake().users.clear();
    for (const std::string& name : c.listed) {
      Fake().users.push_back({name, name == "gone" ? KORV_UNKNOWN_ID : 1000, 100, "", ""});
    }
    Fake().announced_groups = c.listed;
    Fake().user_count = c.count;
    Fake().error = c.error;
    c.kind == "user" ? Check<User>(c, TryToGetAllZelmUsers)
                     : Check<Group>(c, TryToGetAllZelmGroups);
    EXPECT_TRUE(c.said.empty() || Logged(c.said));
    const std::string verb = c.error == KLIB_ERR_FAILED ? "stop" : "continue";
    EXPECT_TRUE(c.error == 0 ||
                Logged("Cannot get " + c.kind + " [gone], err: [" + std::to_string(c.error) +
                       "], " + verb + " getting other " + c.kind + "s."));
  }
  UseSource("win");
  Fake().users = {{"DOM\\alice", 1000, 100, "", ""}};
  std::vector<User> users;
  bool complete = false;
  EXPECT_TRUE(TryToGetAllZelmUsers(users, complete));
  EXPECT_EQ(Fake().asked_domain, "DOM") << "the domain's name goes to no other source";
}

TEST_F(AccountSourceTest, ShortNameBecomesTheSourcesOwn) {
  const std::string longest(491, 'x');
  const struct {
    std::string type;
    std::string short_name;
    bool want;
    std::string want_name;
    std::string said;
  } cases[] = {
      {"local", "alice", true, "Alice", ""},
      {"local", "unknown", true, "unknown", "Convert realname fail unknown"},
      {"local", longest + "cut", true, "Long", ""},
      {"win", "alice", true, "DOM\\Alice", ""},
      {"win", "OTHER\\bob", true, "OTHER\\bob", "Convert realname fail OTHER\\bob"},
      {"ldap", "alice", true, "alice@dc", "Convert realname fail alice@dc"},
      {"ldap", "alice@elsewhere", true, "alice@elsewhere", "Convert realname fail"},
      {"ldap", longest, false, "before", "_LDAPShortname2FullName convert fail"},
      {"else", "alice", false, "before", "unknown account type"},
  };
  Fake().real_names = {{"alice", "Alice"}, {"DOM\\alice", "DOM\\Alice"}, {longest, "Long"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.type + " " + c.short_name);
    UseSource(c.type);
    std::string real_name = "before";
    EXPECT_EQ(ShortName2RealName(true, c.short_name, real_name), c.want);
    EXPECT_EQ(real_name, c.want_name);
    EXPECT_TRUE(c.said.empty() || Logged(c.said));
    Logged("Cannot KORVLDAPCatName");
  }
}

TEST_F(AccountSourceTest, GroupsExpandToShortNamesAndBadOnesCostNoOther) {
  UseSource("win");
  Fake().groups = {{"DOM\\staff", 2000}, {"DOM\\nested", 2001}, {"DOM\\broken", 2002}};
  Fake().members = {{"DOM\\staff", {"DOM\\alice", "DOM\\nobody"}}, {"DOM\\nested", {"DOM\\alice"}}};
  Fake().real_names = {{"DOM\\alice", "DOM\\Alice"}};
  for (const std::string group : {"DOM\\staff", "DOM\\nested", "DOM\\broken", "DOM\\absent"}) {
    Fake().real_names[group] = group;
  }
  Names names{"left over"};
  GetUserShortNamesFromGroupShortNames({"staff", "absent", "broken", "nested"}, names);
  EXPECT_EQ(names, (Names{"Alice", "Alice"}));
  for (const char* line :
       {"Convert realname fail DOM\\nobody", "Failed to KORVGroupGet [DOM\\absent]",
        "Failed to KORVGroupListMember DOM\\broken",
        "Failed to _AppendUserShortNamesBelongToGroupRealName [DOM\\absent]",
        "Failed to _AppendUserShortNamesBelongToGroupRealName [DOM\\broken]"}) {
    EXPECT_TRUE(Logged(line)) << line;
  }
}

TEST_F(AccountSourceTest, MergedNamesAreSortedAndEachOnce) {
  Names merged;
  MergeAndDedupeUserShortNames({"b", "a", "B"}, {"a", "c"}, merged);
  EXPECT_EQ(merged, (Names{"B", "a", "b", "c"}));
}

TEST_F(AccountSourceTest, ConfigurationIsKeptOnceItWasReadAndNotEmpty) {
  std::string name = "before";
  Fake().unreadable_keys = {"win_domain_short_name"};
  EXPECT_FALSE(DomainMailConfWinDomainShortNameGet(name));
  EXPECT_EQ(name, "before");
  EXPECT_TRUE(Logged("Get mailconf get fail SZK_SMTP_WIN_DOMAIN_SHORT_NAME"));
  Fake().unreadable_keys.clear();
  for (const auto& [value, want] : {std::pair("", ""), {"FIRST", "FIRST"}, {"SECOND", "FIRST"}}) {
    Fake().configuration["win_domain_short_name"] = value;
    EXPECT_TRUE(DomainMailConfWinDomainShortNameGet(name));
    EXPECT_EQ(name, want);
  }
}

TEST(MembershipTest, UnionOfGroupsIgnoresUnknownOnes) {
  const INTERNAL::Gid2UidsMap members = {{1, {10, 11}}, {2, {11, 12}}, {3, {}}};
  EXPECT_EQ(INTERNAL::GetUidsBelongedToGroups(std::vector<unsigned int>{1, 2, 9}, members),
            (std::unordered_set<unsigned int>{10, 11, 12}));
  EXPECT_TRUE(INTERNAL::IsUserBelongsToGroups({9, 2}, members, 12));
  EXPECT_FALSE(INTERNAL::IsUserBelongsToGroups({3, 9}, members, 12));
}

}  // namespace
