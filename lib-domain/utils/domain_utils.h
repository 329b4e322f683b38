// What is an acceptable role, domain name, account alias and default alias pattern.
#ifndef LIB_DOMAIN_UTILS_DOMAIN_UTILS_H
#define LIB_DOMAIN_UTILS_DOMAIN_UTILS_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// Exactly "normal" or exactly "domain_admin".
MDOMAIN_EXPORT bool CheckRoleValid(const std::string& role);

// A mail domain with at least one "." that is not the one the package keeps for itself. Tested as
// passed: neither case nor spelling (U-label, A-label) is changed first. A name without "." and the
// reserved name are one error line each; a name whose syntax is wrong (IDNA 2008, lengths) is
// refused without one.
MDOMAIN_EXPORT bool IsDomainNameValid(const std::string& name);

// The local part of an address, ASCII or internationalised (RFC 5321, 6531). Logs nothing.
MDOMAIN_EXPORT bool IsAccountAliasValid(const std::string& alias);

// At least one complete placeholder: a "<" with a ">" somewhere behind it. What the placeholder
// names, and the text around it, is not examined. Linear in the pattern's length. Logs nothing.
MDOMAIN_EXPORT bool IsDomainDefaultAliasPatternValid(const std::string& pattern);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_DOMAIN_UTILS_H
