// Which patterns are accepted, and the tokens in them.
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

#include "tests/support/fixture.h"

namespace {

using MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid;
using MDOMAIN::UTILS::INTERNAL::FindPatternTokens;

class DomainUtilsTest : public test::RootTest {};

TEST_F(DomainUtilsTest, Patterns) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"", {}},           {"plain", {}},
      {"<", {}},          {"><", {}},
      {"<>", {""}},       {"<g>.<1s>", {"g", "1s"}},
      {"><a>", {"a"}},    {"<a<b>c>", {"a<b"}},
      {"<a\n>", {"a\n"}}, {std::string("<\0>", 3), {std::string("\0", 1)}},
      {"<a><", {"a"}},
  };
  for (const auto& [pattern, tokens] : cases) {
    EXPECT_EQ(FindPatternTokens(pattern), tokens) << pattern;
    EXPECT_EQ(IsDomainDefaultAliasPatternValid(pattern), !tokens.empty()) << pattern;
  }
}

}  // namespace
