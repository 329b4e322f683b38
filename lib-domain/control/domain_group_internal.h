// Steps of CONTROL::DomainGroup that stand on their own.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_GROUP_INTERNAL_H
#define LIB_DOMAIN_CONTROL_DOMAIN_GROUP_INTERNAL_H

#include <string>
#include <tuple>
#include <vector>

#include "lib-domain/record/domain_group_role.h"
#include "lib-domain/record/group.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// Appends the groups that short names stand for, with gid, full name and description, in order.
// Stops with false and a log line at the first that cannot be looked up.
MDOMAIN_EXPORT bool _GetGroupsFromGroupShortNames(const std::vector<std::string>& short_names,
                                                  std::vector<RECORD::Group>& groups);
// Appends the role "normal" in the domain for every group, in order. Always true.
MDOMAIN_EXPORT bool _ComposeDomainGroupsRoles(const int& domain_idx,
                                              const std::vector<RECORD::Group>& groups,
                                              std::vector<RECORD::DomainGroupRole>& roles);
// By status, descending: "removed" comes before "normal".
MDOMAIN_EXPORT bool _CompareMemberTupleByStatus(
    const std::tuple<unsigned int, std::string, std::string>& a,
    const std::tuple<unsigned int, std::string, std::string>& b);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_GROUP_INTERNAL_H
