// The role of a group in a domain.
#include "lib-domain/record/domain_group_role.h"

#include <utility>

#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::RECORD {

DomainGroupRole::DomainGroupRole(int domain_idx, unsigned int gid, std::string role)
    : domain_idx_(domain_idx), gid_(gid), role_(std::move(role)) {}

bool DomainGroupRole::IsValid() const {
  return domain_idx_ >= 0 && gid_ != kUnsetId && UTILS::CheckRoleValid(role_);
}

}  // namespace MDOMAIN::RECORD
