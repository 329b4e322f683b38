// Steps of reading accounts that stand on their own, and what only tests need.
#ifndef LIB_DOMAIN_ACCOUNTS_ACCOUNT_SOURCE_INTERNAL_H
#define LIB_DOMAIN_ACCOUNTS_ACCOUNT_SOURCE_INTERNAL_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS::INTERNAL {

// DOM\name; a name that holds a backslash already is unchanged.
MDOMAIN_EXPORT bool _DomainShortName2FullName(const std::string& short_name,
                                              std::string& full_name);
// name@domain; a name that holds an "@" already is unchanged.
MDOMAIN_EXPORT bool _LDAPShortname2FullName(const std::string& short_name, std::string& full_name);
// Appends the short names of a group's members, in the account system's order. A member whose name
// cannot be resolved is logged and left out.
MDOMAIN_EXPORT bool _AppendUserShortNamesBelongToGroupRealName(
    const std::string& group_real_name, std::vector<std::string>& user_short_names);

// Forgets the configuration values kept for the life of the process. For tests only.
void ResetAccountConfigurationForTest();

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_ACCOUNT_SOURCE_INTERNAL_H
