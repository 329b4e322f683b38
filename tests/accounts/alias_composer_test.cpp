// A pattern's text, whatever bytes it holds, and a user's values become an alias in bounded time.
#include "lib-domain/accounts/alias_composer.h"

#include <chrono>

#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"
#include "tests/support/fixture.h"

namespace {

using namespace MDOMAIN::UTILS::INTERNAL;

using Map = std::map<std::string, std::string>;

// Every token's attribute is the token without its length.
Map TokensOf(const std::string& pattern) {
  Map tokens;
  for (const std::string& token : FindPatternTokens(pattern)) {
    tokens[token] = StripBeginningInteger(token);
  }
  return tokens;
}

class AliasComposerTest : public test::RootTest {
 protected:
  // "(failed)" when there is no alias.
  static std::string Compose(const std::string& pattern, const Map& values) {
    const AliasComposer composer(pattern, TokensOf(pattern));
    std::string alias;
    return composer.Compose("j smith", values, alias) ? alias : "(failed)";
  }
};

TEST_F(AliasComposerTest, ComposesText) {
  const Map values = {
      {"g", "John"}, {"s", "Smith"}, {"u", "J\xC3\xBCrgen"}, {"b", "a b<>c"}, {"e", ""}};
  const std::pair<const char*, const char*> cases[] = {
      {"<1g>.<s>", "J.Smith"},
      {"<10g>", "John"},
      {"<0g>", "John"},
      {"<g>-<g>", "John-John"},
      {"sales", "sales"},
      {"", ""},
      {"<4g><3s>x", "JohnSmix"},
      {"<2u>", "J"},
      {"<3u>", "J\xC3\xBC"},
      {"<b>", "abc"},
      {"x<e>y", "xy"},
      {"<g", "<g"},
      {"g>", "g>"},
      {"a>b<g>c>d<", "a>bJohnc>d<"},
      {"<g>.<unknown>", "jsmith"},
      {"<1g>.<>", "jsmith"},
      {"<<g>", "jsmith"},
      {"<2147483647g>", "John"},
      {"<00001g>", "J"},
  };
  for (const auto& [pattern, want] : cases) {
    EXPECT_EQ(Compose(pattern, values), want) << pattern;
  }
}

TEST_F(AliasComposerTest, UnusableTokensFailTheAliasAndSaySo) {
  const std::string many_groups(300, '(');
  const Map values = {{"g", "John"}, {"a*", "star"},     {"a(", "x"},
                      {"[", "x"},    {many_groups, "x"}, {std::string("a.\0", 3), "x"}};
  const std::pair<std::string, const char*> cases[] = {
      {"<g><a(>", "Token [a(] of the default alias pattern is not a valid regular expression"},
      {"<[>", "Token [[] of the default alias pattern is not a valid regular expression"},
      {"<" + many_groups + ">", "is not a valid regular expression"},
      {std::string("<a.\0>", 5), "is not a valid regular expression"},
      {"<99999999999g>", "A length in the default alias pattern [<99999999999g>] is out of range"},
      {"<a*>", "Failed to compose an alias for [j smith] from the default alias pattern [<a*>]"},
  };
  for (const auto& [pattern, line] : cases) {
    EXPECT_EQ(Compose(pattern, values), "(failed)");
    EXPECT_TRUE(Logged(line)) << pattern.substr(0, 40);
  }
  // Without a value for its attribute a length is never read and no expression formed.
  for (const char* pattern : {"<99999999999nobody>", "<g><b(>", "<{>"}) {
    EXPECT_EQ(Compose(pattern, values), "jsmith") << pattern;
  }
}

// Longer than any input of the fuzzer: what takes time by the square of it, or a stack as deep,
// shows here alone. A regular expression of the standard library overflowed the stack on such
// patterns.
TEST_F(AliasComposerTest, HostilePatternsEndSoon) {
  constexpr size_t kSize = 1U << 18U;
  std::string many_tokens;
  for (int i = 0; many_tokens.size() < kSize; ++i) {
    many_tokens += "<" + std::to_string(i) + "a>";
  }
  std::string many_regexes;
  std::string copies;
  for (int i = 0; copies.size() < kSize; ++i) {
    many_regexes += "<." + std::to_string(i) + ">";
    copies += "<d>";
  }
  const struct {
    const char* name;
    std::string pattern;
    bool want;
  } cases[] = {
      {"opening", std::string(kSize, '<'), true},
      {"nested opening", std::string(kSize, '<') + "a>", true},
      {"different tokens", many_tokens, true},
      {"copies of the rest", copies, false},
      {"regular expressions", many_regexes, false},
      {"groups", "<" + std::string(kSize, '(') + ">", false},
  };
  for (const auto& c : cases) {
    Map values = {{"a", "alice"}, {"d", "$'$`"}};
    for (const auto& [token, attribute] : TokensOf(c.want ? "" : c.pattern)) {
      values.emplace(attribute, "x");
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Compose(c.pattern, values) != "(failed)", c.want) << c.name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << c.name;
  }
  TakeLog();
}

}  // namespace
