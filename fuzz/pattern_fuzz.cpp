// Default alias patterns: what the scan finds puts the pattern together again, and a pattern is
// valid exactly when something was found.

#include "fuzz/target.h"
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"

void fuzz::Run(const std::string& pattern) {
  const auto tokens = MDOMAIN::UTILS::INTERNAL::FindPatternTokens(pattern);
  size_t from = 0;
  for (const std::string& token : tokens) {
    const size_t open = pattern.find('<', from);
    Require(open != std::string::npos && token.find('>') == std::string::npos &&
            pattern.compare(open, token.size() + 2, "<" + token + ">") == 0);
    from = open + token.size() + 2;
  }
  const size_t open = pattern.find('<', from);
  const bool one_more = open != std::string::npos && pattern.find('>', open) != std::string::npos;
  Require(!one_more);
  Require(MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid(pattern) != tokens.empty());
}
