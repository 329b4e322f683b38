// A local part of a user in a domain.
#include "lib-domain/record/domain_user_alias.h"

#include <utility>

#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::RECORD {

DomainUserAlias::DomainUserAlias(int domain_idx, unsigned int uid, std::string account_alias,
                                 bool is_duplicated)
    : domain_idx_(domain_idx),
      uid_(uid),
      account_alias_(std::move(account_alias)),
      is_duplicated_(is_duplicated) {}

bool DomainUserAlias::IsValid() const {
  return domain_idx_ >= 0 && uid_ != kUnsetId && !account_alias_.empty() &&
         UTILS::IsAccountAliasValid(account_alias_);
}

}  // namespace MDOMAIN::RECORD
