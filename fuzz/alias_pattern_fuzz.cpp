// A default alias pattern, then a line end, then a value that some of its attributes have.
#include <cstdint>
#include <map>
#include <string>

#include "lib-domain/accounts/alias_composer.h"
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"
#include "platform/include/maillog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace MDOMAIN::UTILS::INTERNAL;
  korvmailserver::SetMailLogSink([](int, const std::string&) { return true; });
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t end = input.find('\n');
  const std::string pattern = input.substr(0, end);
  const std::string value = end == std::string::npos ? "John" : input.substr(end + 1);
  std::map<std::string, std::string> tokens;
  std::map<std::string, std::string> values;
  for (const std::string& token : FindPatternTokens(pattern)) {
    tokens[token] = StripBeginningInteger(token);
    values[tokens[token]] = value;
  }
  const AliasComposer composer(pattern, tokens);
  std::string alias;
  if (composer.IsUsable() && composer.Compose("alice", values, alias) &&
      alias.size() > AliasComposer::kMaxTextSize) {
    __builtin_trap();
  }
  return 0;
}
