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

// While one lives, TryListMemberships answers a second question from the first answer, as long as
// this process has the write lock and has changed no row in between. One at a time.
class MembershipsOnce {
 public:
  MembershipsOnce();
  ~MembershipsOnce();
  MembershipsOnce(const MembershipsOnce&) = delete;
  MembershipsOnce& operator=(const MembershipsOnce&) = delete;
};

// The memberships (gid, uid), in this order. False, with nothing logged, where a row is not two
// plain numbers or they cannot be read now.
using Memberships = std::vector<std::pair<unsigned int, unsigned int>>;
bool TryListMemberships(Memberships& memberships);
// Whether nobody else can write until this process ends its transaction.
bool IsWriting();

// The members of one group who leave it and join it; no others have to be written.
struct MemberDifference {
  unsigned int gid = 0;
  std::vector<unsigned int> left;
  Memberships joined;
};
// Deletes the rows of those who left.
bool DeleteMembers(const MemberDifference& difference);
// Writes all of them, group by group, or none, with nothing logged: where somebody joins who is not
// mirrored, and when it cannot be written.
bool TryWriteMembers(const std::vector<MemberDifference>& differences);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_MIRROR_BATCH_H
