// Parts of what the stores of the mirror write at once.
#ifndef LIB_DOMAIN_DB_MIRROR_BATCH_H
#define LIB_DOMAIN_DB_MIRROR_BATCH_H

#include <utility>
#include <vector>

#include "lib-domain/record/user.h"

namespace MDOMAIN::DB::INTERNAL {

class StatementBatch;

// The statements of User::Create; the users must outlive the batch.
void AddUsers(const std::vector<RECORD::User>& users, StatementBatch& batch);
// Mirrors users (known ones stay as they are) and adds memberships that are not there yet; or
// writes nothing and logs nothing: then User::Create and SetGroupToUsers say why, or can do it.
bool CreateMembers(const std::vector<RECORD::User>& users,
                   const std::vector<std::pair<unsigned int, unsigned int>>& gid_uid_pairs);

// The memberships (gid, uid), in this order. False, with nothing logged, where a row is not two
// plain numbers or they cannot be read now.
using Memberships = std::vector<std::pair<unsigned int, unsigned int>>;
bool TryListMemberships(Memberships& memberships);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_MIRROR_BATCH_H
