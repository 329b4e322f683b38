// Taking alias patterns apart, and names of domains as people give them.
#ifndef LIB_DOMAIN_UTILS_DOMAIN_UTILS_INTERNAL_H
#define LIB_DOMAIN_UTILS_DOMAIN_UTILS_INTERNAL_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS::INTERNAL {

// The texts between "<" and ">" that "<([^>]*)>" finds from left to right, not overlapping, empty
// ones included. Linear in the pattern's length, whatever its bytes.
std::vector<std::string> FindPatternTokens(const std::string& pattern);

// What IsDomainNameValid gives, without its log lines.
bool IsDomainName(const std::string& name);

// In a spelling that can be stored: "Österreich.example" becomes "österreich.example". What is a
// domain name as it stands, or is none at all, is left as it is.
MDOMAIN_EXPORT std::string StorableDomainName(const std::string& given);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_UTILS_DOMAIN_UTILS_INTERNAL_H
