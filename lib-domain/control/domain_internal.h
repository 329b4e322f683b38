// Comparisons of names that the sources of CONTROL::Domain share with their tests.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_INTERNAL_H
#define LIB_DOMAIN_CONTROL_DOMAIN_INTERNAL_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// Whether the list holds the name, letter case ignored as the global locale has it.
MDOMAIN_EXPORT bool IExists(const std::vector<std::string>& names, const std::string& name);

// The names in order without empty ones and without those that the result already holds in either
// spelling (UTF-8 or punycode), whatever their case: the first written stays.
MDOMAIN_EXPORT std::vector<std::string> EraseDuplicatedDomainNames(
    const std::vector<std::string>& names);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_INTERNAL_H
