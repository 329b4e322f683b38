// When records are acceptable, and what a user's record gives out.
#include "lib-domain/record/domain.h"
#include "lib-domain/record/domain_group.h"
#include "lib-domain/record/domain_group_role.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "tests/support/fixture.h"

namespace {

using namespace MDOMAIN::RECORD;

class RecordTest : public test::RootTest {};

TEST_F(RecordTest, DomainSaysWhatIsWrongFirst) {
  const struct {
    int idx;
    std::string name;
    std::string pattern;
    std::string said;  // empty: valid
  } cases[] = {
      {0, "a.example", "<a>", ""},
      {-1, "nodot", "", "Domain ID [-1] is invalid"},
      {1, "a b.example", "", "Domain name [a b.example] is invalid"},
      {1, "a.example", "<a", "Domain default alias pattern [<a] is invalid"},
  };
  for (const auto& c : cases) {
    const Domain domain(c.idx, c.name, "", c.pattern, false, false, false);
    EXPECT_EQ(domain.IsValid(), c.said.empty()) << c.said;
    EXPECT_EQ(TakeLog().size(), c.said.empty() ? 0U : 1U);
    EXPECT_EQ(domain.IsValid(), c.said.empty());
    EXPECT_TRUE(c.said.empty() || Logged(c.said)) << c.said;
  }
  const Domain first("a.example");
  EXPECT_EQ(first.GetDefaultAliasPattern(), "<a>");
  EXPECT_TRUE(first.IsPrimary() && first.IsAutomaticallyAddingUsers());
  EXPECT_FALSE(first.IsValid());  // no index yet
  TakeLog();
}

TEST_F(RecordTest, AccountsNeedAnIdAndAName) {
  constexpr unsigned int kNone = 4294967295U;
  const struct {
    bool got;
    bool want;
    const char* what;
  } cases[] = {
      {User(0, "root").IsValid(), true, "uid 0"},
      {User(kNone, "root").IsValid(), false, "no uid"},
      {User(1, "").IsValid(), false, "no name"},
      {Group(0, "g", "").IsValid(), true, "gid 0"},
      {Group(kNone, "g", "").IsValid(), false, "no gid"},
      {DomainUserRole().IsValid(), false, "empty role record"},
      {DomainUserRole(0, 0, "normal", false).IsValid(), true, "role"},
      {DomainUserRole(0, 0, "Normal", false).IsValid(), false, "role in capitals"},
      {DomainUserRole(-1, 0, "normal", false).IsValid(), false, "no domain"},
      {DomainGroupRole(1, 1, "").IsValid(), false, "no group role"},
      {DomainGroupRole(1, 1, "domain_admin").IsValid(), true, "group role"},
      {DomainGroup(1, 1, "", "", "normal").IsValid(), false, "group without name"},
      {DomainGroup(1, 1, "g", "", "normal").IsValid(), true, "group"},
      {DomainUser(1, 1, "u", {{"not an alias", false}}, "normal").IsValid(), true, "user"},
      {DomainUser(1, 1, "", {}, "normal").IsValid(), false, "user without name"},
      {DomainUser(1, 1, "u", {}, "group").IsValid(), false, "user with another role"},
      {DomainUserAlias(1, 1, "o'brien", false).IsValid(), true, "alias"},
      {DomainUserAlias(1, 1, "zoë", false).IsValid(), true, "alias beyond ASCII"},
      {DomainUserAlias(1, 1, "", false).IsValid(), false, "empty alias"},
      {DomainUserAlias(1, 1, "a b", false).IsValid(), false, "alias with a blank"},
      {DomainUserAlias(1, 1, std::string("a\0b", 3), false).IsValid(), false, "zero byte"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.got, c.want) << c.what;
  }
  DomainUserRole role;
  role.SetDomainIdx(1);
  role.SetUID(1);
  EXPECT_TRUE(role.IsValid());  // the default role is a role
  DomainGroupRole group_role;
  group_role.SetDomainIdx(1);
  group_role.SetGID(1);
  EXPECT_FALSE(group_role.IsValid());  // here it is not
}

TEST_F(RecordTest, UserGivesOutItsRowsInOrder) {
  const DomainUser user(2, 1000, "u", {{"a", false}, {"b", true}}, "domain_admin");
  const auto aliases = user.ExtractDomainUserAliases();
  ASSERT_EQ(aliases.size(), 2U);
  EXPECT_EQ(aliases[0].GetAccountAlias() + aliases[1].GetAccountAlias(), "ab");
  EXPECT_FALSE(aliases[0].IsDuplicated());
  EXPECT_TRUE(aliases[1].IsDuplicated());
  EXPECT_EQ(aliases[1].GetDomainIdx(), 2);
  EXPECT_EQ(aliases[1].GetUID(), 1000U);
  const DomainUserRole role = user.ExtractDomainUserRole();
  EXPECT_EQ(role.GetRole(), "domain_admin");
  EXPECT_FALSE(role.IsAutoAdded());
}

}  // namespace
