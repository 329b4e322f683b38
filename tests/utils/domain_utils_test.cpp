// Which patterns are accepted, and the tokens in them.
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

#include "tests/support/fixture.h"

namespace {

using MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid;
using MDOMAIN::UTILS::INTERNAL::FindPatternTokens;

class DomainUtilsTest : public test::RootTest {};

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

}  // namespace
