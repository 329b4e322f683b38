// Default alias patterns: what the scan finds puts the pattern together again, and a pattern is
// valid exactly when something was found.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string pattern(reinterpret_cast<const char*>(data), size);
  const auto tokens = MDOMAIN::UTILS::INTERNAL::FindPatternTokens(pattern);
  size_t from = 0;
  for (const std::string& token : tokens) {
    const size_t open = pattern.find('<', from);
    if (open == std::string::npos || token.find('>') != std::string::npos ||
        pattern.compare(open, token.size() + 2, "<" + token + ">") != 0) {
      std::abort();
    }
    from = open + token.size() + 2;
  }
  const size_t open = pattern.find('<', from);
  if (open != std::string::npos && pattern.find('>', open) != std::string::npos) {
    std::abort();  // one more was there
  }
  if (MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid(pattern) == tokens.empty()) {
    std::abort();
  }
  return 0;
}
