// Mirrored users by what people call them.
#ifndef LIB_DOMAIN_CONTROL_MIRRORED_NAMES_H
#define LIB_DOMAIN_CONTROL_MIRRORED_NAMES_H

#include <string>
#include <vector>

#include "lib-domain/record/user.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// _GetUsersFromUserShortNames (alias_conflict.h), with a mirror that cannot be read told apart:
// false, with its log line.
bool TryGetUsersFromUserShortNames(const std::vector<std::string>& short_names,
                                   std::vector<RECORD::User>& users);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_MIRRORED_NAMES_H
