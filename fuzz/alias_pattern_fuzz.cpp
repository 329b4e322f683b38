// A default alias pattern, then the values of its tokens, a line each. The one pass that makes an
// alias must give what replacing token after token with the standard library gives.
#include <map>
#include <regex>
#include <sstream>
#include <vector>

#include "fuzz/target.h"
#include "lib-domain/accounts/alias_composer.h"
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"
#include "platform/include/eai.h"

namespace {

using namespace MDOMAIN::UTILS::INTERNAL;

using Map = std::map<std::string, std::string>;

// The standard library recurses with the length of a text, and takes a zero byte for an end.
bool IsForTheLibrary(const std::string& text) {
  return text.size() <= 512 && text.find('\0') == std::string::npos;
}

std::string ReplaceOneByOne(std::string text, const Map& tokens, const Map& values) {
  for (const auto& [token, attribute] : tokens) {
    const std::string value =
        KORV::POSTARA_SERVER::StripInvalidEaiChars(ParseValByPattern(token, values.at(attribute)));
    const std::regex expression(std::string("<").append(token).append(">"));
    text = std::regex_replace(text, expression, value);
    if (!IsForTheLibrary(text)) {
      break;
    }
  }
  return text;
}

}  // namespace

void fuzz::Run(const std::string& input) {
  std::istringstream text(input);
  std::string pattern;
  std::getline(text, pattern);
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  lines.resize(lines.empty() ? 1 : lines.size(), "John");
  Map tokens;
  Map values;
  for (const std::string& token : FindPatternTokens(pattern)) {
    tokens[token] = StripBeginningInteger(token);
    values.emplace(tokens[token], lines[values.size() % lines.size()]);
  }
  const AliasComposer composer(pattern, tokens);
  std::string alias;
  if (!composer.Compose("alice", values, alias)) {
    return;
  }
  Require(alias.size() <= AliasComposer::kMaxTextSize);
  if (IsForTheLibrary(pattern)) {
    const std::string want = ReplaceOneByOne(pattern, tokens, values);
    Require(!IsForTheLibrary(want) || alias == want);
  }
}
