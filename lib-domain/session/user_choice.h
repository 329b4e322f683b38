// Lists of users by more than a text: who collides, has no role of his own, drifts, is in a group.
#ifndef LIB_DOMAIN_SESSION_USER_CHOICE_H
#define LIB_DOMAIN_SESSION_USER_CHOICE_H

#include <cstdint>
#include <vector>

#include "lib-domain/session/access.h"

namespace mdomain::session {

// Whether something is asked for besides a text: then ChosenUsers is the way to a page. Pages of
// all others come from a list that the database layer remembers.
bool IsChoosing(const UserQuery& query);

// Everybody of the domain for whom all that is asked for holds, in the order asked for.
std::vector<std::uint32_t> ChosenUsers(const Known& domain, const UserQuery& query,
                                       const char* column);

// Ends the call for a group that is none of the domain's.
void RequireGroups(const Known& domain, const std::vector<std::uint32_t>& gids);

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_USER_CHOICE_H
