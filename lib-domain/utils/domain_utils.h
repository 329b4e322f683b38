// What is an acceptable role, domain name, account alias and default alias pattern.
#ifndef LIB_DOMAIN_UTILS_DOMAIN_UTILS_H
#define LIB_DOMAIN_UTILS_DOMAIN_UTILS_H

#include <string>
#include <vector>

namespace MDOMAIN::UTILS {

bool CheckRoleValid(const std::string& role);
bool IsDomainNameValid(const std::string& name);
bool IsAccountAliasValid(const std::string& alias);
bool IsDomainDefaultAliasPatternValid(const std::string& pattern);

namespace INTERNAL {

// The texts between "<" and ">" that "<([^>]*)>" finds from left to right, not overlapping.
std::vector<std::string> FindPatternTokens(const std::string& pattern);

}  // namespace INTERNAL
}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_DOMAIN_UTILS_H
