// The flags of colliding aliases after a change of few users.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_USER_FLAGS_H
#define LIB_DOMAIN_CONTROL_DOMAIN_USER_FLAGS_H

#include <vector>

#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// Sets the flags of the users' aliases anew (RecomputeFlags) and announces those whose flags
// change. The users must be all who have any of these aliases. False with a log line when the
// database cannot be written.
bool SettleFlags(std::vector<RECORD::DomainUser> users);

// The aliases of the users in the domain, and maybe others. False with a log line when they cannot
// be read.
bool ListAliasesOf(int domain_idx, const std::vector<unsigned int>& uids,
                   std::vector<RECORD::DomainUserAlias>& aliases);

// After a change that took or gave `aliases`, or changed the roles of those who have them: what
// DomainUser::UpdateDuplicateAlias does for these domains, at the cost of the aliases that collide
// or are named. Equal aliases of which none is flagged, which no operation here leaves, are
// looked at only when they are among `aliases`; a refresh looks at all. Messages as there.
bool UpdateFlags(const std::vector<int>& domain_idxs,
                 const std::vector<RECORD::DomainUserAlias>& aliases);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_USER_FLAGS_H
