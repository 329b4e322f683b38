// The acceptance rules of names, patterns and roles.
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

#include "tests/support/fixture.h"

namespace {

using MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid;
using MDOMAIN::UTILS::IsDomainNameValid;
using MDOMAIN::UTILS::INTERNAL::FindPatternTokens;

class DomainUtilsTest : public test::RootTest {};

TEST_F(DomainUtilsTest, DomainNames) {
  const struct {
    std::string name;
    bool valid;
    std::string said;
  } cases[] = {
      {"example.com", true, ""},
      {"localdomain.lan", true, ""},
      {"münchen.example", true, ""},
      {"", false, "Domain name [] without \".\" is not valid"},
      {"localdomain", false, "Domain name [localdomain] without \".\" is not valid"},
      {"System.ALIAS.to.user.postara", false,
       "Domain name [System.ALIAS.to.user.postara] is reserved"},
      {".example.com", false, ""},
      {"example.com.", false, ""},
      {"a b.com", false, ""},
      {std::string("a.com\0.b", 8), false, ""},
      {std::string(250, 'a') + ".com", false, ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsDomainNameValid(c.name), c.valid) << c.name;
    EXPECT_TRUE(c.said.empty() || Logged(c.said)) << c.name;
    EXPECT_TRUE(TakeLog().empty()) << c.name;
  }
}

TEST_F(DomainUtilsTest, Patterns) {
  const struct {
    std::string pattern;
    std::vector<std::string> tokens;
  } cases[] = {
      {"", {}},           {"plain", {}},
      {"<", {}},          {"><", {}},
      {"<>", {""}},       {"<g>.<1s>", {"g", "1s"}},
      {"><a>", {"a"}},    {"<a<b>c>", {"a<b"}},
      {"<a\n>", {"a\n"}}, {std::string("<\0>", 3), {std::string("\0", 1)}},
      {"<a><", {"a"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FindPatternTokens(c.pattern), c.tokens) << c.pattern;
    EXPECT_EQ(IsDomainDefaultAliasPatternValid(c.pattern), !c.tokens.empty()) << c.pattern;
  }
}

TEST_F(DomainUtilsTest, Roles) {
  EXPECT_TRUE(MDOMAIN::UTILS::CheckRoleValid("normal"));
  EXPECT_TRUE(MDOMAIN::UTILS::CheckRoleValid("domain_admin"));
  for (const char* role : {"", "normal ", "Normal", "DOMAIN_ADMIN", "group"}) {
    EXPECT_FALSE(MDOMAIN::UTILS::CheckRoleValid(role)) << role;
  }
}

}  // namespace
