// A pattern's text, whatever bytes it holds, and a user's values become an alias in bounded time.
#include "lib-domain/accounts/alias_composer.h"

#include <chrono>
#include <regex>

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
    return composer.IsUsable() && composer.Compose("j smith", values, alias) ? alias : "(failed)";
  }
};

TEST_F(AliasComposerTest, ComposesText) {
  const Map values = {
      {"g", "John"}, {"s", "Smith"}, {"u", "J\xC3\xBCrgen"}, {"b", "a b<>c"}, {"e", ""}};
  const struct {
    const char* pattern;
    const char* want;
  } cases[] = {
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
  for (const auto& test_case : cases) {
    EXPECT_EQ(Compose(test_case.pattern, values), test_case.want) << test_case.pattern;
  }
}

// What one pass makes must be what replacing token after token with the standard library makes.
TEST_F(AliasComposerTest, EqualsTheStandardReplacementTokenByToken) {
  const Map values = {{"a", "x$&y"},   {"b", "$`"}, {"c", "$'"},  {"d", "$$1$0$00$1$12$"},
                      {"e", "plain"},  {"f", "$x"}, {"<h", "lt"}, {"i.j", "dot"},
                      {"[k]", "class"}};
  const char* patterns[] = {"<a>.<a>",  "p<b>q<b>r",     "<c>-<e>-<c>", "<d><d>",
                            "<f><e>",   "<<h>",          "<<h><h>",     "<i.j> <ixj>",
                            "<k><[k]>", "<a><b><e><a>.", "<e>><e>",     "<c><a>"};
  Map all = values;
  all["h"] = "H";
  all["ixj"] = "X";
  all["k"] = "K";
  for (const std::string pattern : patterns) {
    std::string want = pattern;
    for (const auto& [token, attribute] : TokensOf(pattern)) {
      // No "<" or blank in these values: nothing to strip.
      want = std::regex_replace(want, std::regex("<" + token + ">"), all.at(attribute));
    }
    EXPECT_EQ(Compose(pattern, all), want) << pattern;
  }
}

TEST_F(AliasComposerTest, UnusableTokensFailTheAliasAndSaySo) {
  const Map values = {{"g", "John"}, {"a*", "star"}};
  const std::string many_groups(300, '(');
  const struct {
    std::string pattern;
    const char* line;
  } cases[] = {
      {"<g><a(>", "Token [a(] of the default alias pattern is not a valid regular expression"},
      {"<[>", "Token [[] of the default alias pattern is not a valid regular expression"},
      {"<" + many_groups + ">", "is not a valid regular expression"},
      {std::string("<a.\0>", 5), "is not a valid regular expression"},
      {"<99999999999g>", "A length in the default alias pattern [<99999999999g>] is out of range"},
      {"<a*>", "Failed to compose an alias for [j smith] from the default alias pattern [<a*>]"},
  };
  for (const auto& test_case : cases) {
    EXPECT_EQ(Compose(test_case.pattern, values), "(failed)");
    EXPECT_TRUE(Logged(test_case.line)) << test_case.pattern.substr(0, 40);
  }
  // Without a value for its attribute a length is never read.
  EXPECT_EQ(Compose("<99999999999nobody>", values), "jsmith");
}

TEST_F(AliasComposerTest, HostilePatternsOfAMegabyteEndSoon) {
  constexpr size_t kSize = 1U << 20U;
  const auto repeated = [](const std::string& unit) {
    std::string text;
    while (text.size() < kSize) {
      text += unit;
    }
    return text;
  };
  std::string many_tokens;
  for (int i = 0; many_tokens.size() < kSize; ++i) {
    many_tokens += "<" + std::to_string(i) + "a>";
  }
  std::string many_regexes;
  for (int i = 0; many_regexes.size() < kSize; ++i) {
    many_regexes += "<(a{98}){99}" + std::to_string(i) + ">";
  }
  const Map values = {{"a", "alice"}, {"d", "$'$`"}};
  const struct {
    const char* name;
    std::string pattern;
    bool want;
  } cases[] = {
      {"no token", repeated("x"), true},
      {"opening", repeated("<"), true},
      {"one token", repeated("<a>"), true},
      {"different tokens", many_tokens, true},
      {"one long token", "<" + repeated("y") + ">", true},
      {"nested opening", repeated("<") + "a>", true},
      {"copies of the rest", repeated("<d>"), false},
      {"regular expressions", many_regexes, false},
      {"groups", "<" + repeated("(") + ">", false},
  };
  for (const auto& test_case : cases) {
    SCOPED_TRACE(test_case.name);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Compose(test_case.pattern, values) != "(failed)", test_case.want);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  }
  TakeLog();
}

}  // namespace
