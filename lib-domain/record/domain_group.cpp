// A group with its role in a domain.
#include "lib-domain/record/domain_group.h"

#include <utility>

#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::RECORD {

DomainGroup::DomainGroup(int domain_idx, unsigned int gid, std::string group_name,
                         std::string group_desc, std::string role)
    : domain_idx_(domain_idx),
      gid_(gid),
      group_name_(std::move(group_name)),
      group_desc_(std::move(group_desc)),
      role_(std::move(role)) {}

bool DomainGroup::IsValid() const {
  return domain_idx_ >= 0 && gid_ != kUnsetId && !group_name_.empty() &&
         UTILS::CheckRoleValid(role_);
}

}  // namespace MDOMAIN::RECORD
