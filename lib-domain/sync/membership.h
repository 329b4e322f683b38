// Who belongs to which group and which groups to which domain, as the mirror has it.
#ifndef LIB_DOMAIN_SYNC_MEMBERSHIP_H
#define LIB_DOMAIN_SYNC_MEMBERSHIP_H

#include <map>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/group.h"
#include "platform/include/export.h"

namespace MDOMAIN::UTILS::INTERNAL {

using Gid2UidsMap = std::map<unsigned int, std::unordered_set<unsigned int>>;
using Domain2GidsMap = std::map<int, std::vector<unsigned int>>;

// Members of every mirrored group, also of those without members. A group whose members cannot be
// read is logged and not in the map; when the groups cannot be listed the map is empty.
MDOMAIN_EXPORT Gid2UidsMap GetGid2UidsMap();
// The groups of each given domain, also of those without groups. A domain whose groups cannot be
// read is logged and not in the map.
MDOMAIN_EXPORT Domain2GidsMap GetDomain2GidsMap(const std::vector<int>& domain_idxs);
MDOMAIN_EXPORT Domain2GidsMap GetAllDomain2GidsMap();

// Everyone who is a member of at least one of the groups; unknown gids add nobody.
MDOMAIN_EXPORT std::unordered_set<unsigned int> GetUidsBelongedToGroups(
    const std::vector<unsigned int>& gids, const Gid2UidsMap& uids_by_gid);
MDOMAIN_EXPORT std::unordered_set<unsigned int> GetUidsBelongedToGroups(
    const std::vector<RECORD::Group>& groups, const Gid2UidsMap& uids_by_gid);
// Costs one look-up per gid: a caller with many uids asks GetUidsBelongedToGroups once instead.
MDOMAIN_EXPORT bool IsUserBelongsToGroups(const std::vector<unsigned int>& gids,
                                          const Gid2UidsMap& uids_by_gid, unsigned int uid);
// Whether the user is a mirrored member of any group with a role in the domain. `result` is only
// ever set to true: preset it.
MDOMAIN_EXPORT bool IsBelongingGroupsInDomain(const int& domain_idx, const unsigned int& uid,
                                              bool& result);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_MEMBERSHIP_H
