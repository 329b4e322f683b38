// A role given to a user directly.
#include "lib-domain/record/domain_user_role.h"

#include <utility>

#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::RECORD {

DomainUserRole::DomainUserRole(int domain_idx, unsigned int uid, std::string role,
                               bool is_auto_added)
    : domain_idx_(domain_idx), uid_(uid), role_(std::move(role)), is_auto_added_(is_auto_added) {}

bool DomainUserRole::IsValid() const {
  return domain_idx_ >= 0 && uid_ != kUnsetId && UTILS::CheckRoleValid(role_);
}

}  // namespace MDOMAIN::RECORD
