// The acceptance rules, and the token scan against the regular expression it stands for.
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

#include <regex.h>

#include <chrono>
#include <random>

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

TEST_F(DomainUtilsTest, TokensAreThoseOfTheRegularExpression) {
  regex_t regex;
  ASSERT_EQ(regcomp(&regex, "<([^>]*)>", REG_EXTENDED), 0);
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    std::string pattern(random() % 12, ' ');
    for (char& c : pattern) {
      c = "<>a\n"[random() % 4];
    }
    std::vector<std::string> want;
    regmatch_t match[2];
    for (size_t at = 0; regexec(&regex, pattern.c_str() + at, 2, match, 0) == 0;
         at += static_cast<size_t>(match[0].rm_eo)) {
      want.push_back(pattern.substr(at + static_cast<size_t>(match[1].rm_so),
                                    static_cast<size_t>(match[1].rm_eo - match[1].rm_so)));
    }
    EXPECT_EQ(FindPatternTokens(pattern), want) << pattern;
  }
  regfree(&regex);
}

// A regular expression of the standard library overflowed the stack on such patterns.
TEST_F(DomainUtilsTest, HugePatternsTakeLinearTime) {
  constexpr size_t kSize = 1U << 20;
  std::string pairs;
  while (pairs.size() < kSize) {
    pairs += "<>";
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(IsDomainDefaultAliasPatternValid(std::string(kSize, '<')));
  EXPECT_TRUE(FindPatternTokens(std::string(kSize, '<')).empty());
  EXPECT_EQ(FindPatternTokens(std::string(kSize, '<') + ">").size(), 1U);
  EXPECT_EQ(FindPatternTokens(pairs).size(), kSize / 2);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(DomainUtilsTest, Roles) {
  EXPECT_TRUE(MDOMAIN::UTILS::CheckRoleValid("normal"));
  EXPECT_TRUE(MDOMAIN::UTILS::CheckRoleValid("domain_admin"));
  for (const char* role : {"", "normal ", "Normal", "DOMAIN_ADMIN", "group"}) {
    EXPECT_FALSE(MDOMAIN::UTILS::CheckRoleValid(role)) << role;
  }
}

}  // namespace
