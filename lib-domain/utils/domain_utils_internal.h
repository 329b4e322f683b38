// Taking alias patterns apart.
#ifndef LIB_DOMAIN_UTILS_DOMAIN_UTILS_INTERNAL_H
#define LIB_DOMAIN_UTILS_DOMAIN_UTILS_INTERNAL_H

#include <string>
#include <vector>

namespace MDOMAIN::UTILS::INTERNAL {

// The texts between "<" and ">" that "<([^>]*)>" finds from left to right, not overlapping, empty
// ones included. Linear in the pattern's length, whatever its bytes.
std::vector<std::string> FindPatternTokens(const std::string& pattern);

// What IsDomainNameValid gives, without its log lines.
bool IsDomainName(const std::string& name);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_UTILS_DOMAIN_UTILS_INTERNAL_H
