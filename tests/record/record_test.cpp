// When records are acceptable.
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
  // said: empty: valid
  const std::pair<Domain, std::string> cases[] = {
      {{0, "a.example", "", "<a>", false, false, false}, ""},
      {{-1, "nodot", "", "", false, false, false}, "Domain ID [-1] is invalid"},
      {{1, "a b.example", "", "", false, false, false}, "Domain name [a b.example] is invalid"},
      {{1, "a.example", "", "<a", false, false, false},
       "Domain default alias pattern [<a] is invalid"},
      {Domain("a.example"), "Domain ID [-1] is invalid"},
  };
  for (const auto& [domain, said] : cases) {
    EXPECT_EQ(domain.IsValid(), said.empty()) << said;
    EXPECT_TRUE(said.empty() || Logged(said)) << said;
    EXPECT_TRUE(log_.empty()) << said;
  }
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
      {DomainUserRole().GetRole() == "normal", true, "a user's default role is a role"},
      {DomainUserRole(0, 0, "normal", false).IsValid(), true, "role"},
      {DomainUserRole(0, 0, "Normal", false).IsValid(), false, "role in capitals"},
      {DomainUserRole(-1, 0, "normal", false).IsValid(), false, "no domain"},
      {DomainGroupRole().GetRole().empty(), true, "a group's default role is none"},
      {DomainGroupRole(1, 1, "").IsValid(), false, "no group role"},
      {DomainGroupRole(1, 1, "domain_admin").IsValid(), true, "group role"},
      {DomainGroup(1, 1, "", "", "normal").IsValid(), false, "group without name"},
      {DomainGroup(1, 1, "g", "", "normal").IsValid(), true, "group"},
      {DomainUser(1, 1, "u", {{"not an alias", false}}, "normal").IsValid(), true, "user"},
      {DomainUser(1, 1, "", {}, "normal").IsValid(), false, "user without name"},
      {DomainUser(1, 1, "u", {}, "group").IsValid(), false, "user with another role"},
      {DomainUserAlias(1, 1, "o'brien", false).IsValid(), true, "alias"},
      {DomainUserAlias(1, 1, "", false).IsValid(), false, "empty alias"},
      {DomainUserAlias(1, 1, std::string("a\0b", 3), false).IsValid(), false, "zero byte"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.got, c.want) << c.what;
  }
}

}  // namespace
