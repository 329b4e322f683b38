// Own roles that a change has made unnecessary.
#ifndef LIB_DOMAIN_SYNC_AUTO_ADD_ROLES_H
#define LIB_DOMAIN_SYNC_AUTO_ADD_ROLES_H

#include <string>
#include <vector>

namespace MDOMAIN::UTILS::INTERNAL {

// After users and groups of these short names were added to a domain: what
// Updater::RemoveUnnecessaryAutoAddedUserRole does, for these users and the members of these
// groups, in all domains. Nobody else has got an own role or a group by it; a refresh looks at
// everybody. False with log lines as there.
bool RemoveUnnecessaryRolesOf(const std::vector<std::string>& user_names,
                              const std::vector<std::string>& group_names);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_AUTO_ADD_ROLES_H
