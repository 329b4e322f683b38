// A user as seen in one domain.
#include "lib-domain/record/domain_user.h"

#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::RECORD {

DomainUser::DomainUser(int domain_idx, unsigned int uid, std::string user_name,
                       std::vector<std::pair<std::string, bool>> alias_duplicated_pairs,
                       std::string role)
    : domain_idx_(domain_idx),
      uid_(uid),
      user_name_(std::move(user_name)),
      alias_duplicated_pairs_(std::move(alias_duplicated_pairs)),
      role_(std::move(role)) {}

DomainUserRole DomainUser::ExtractDomainUserRole() const {
  return {domain_idx_, uid_, role_, false};
}

std::vector<DomainUserAlias> DomainUser::ExtractDomainUserAliases() const {
  std::vector<DomainUserAlias> aliases;
  aliases.reserve(alias_duplicated_pairs_.size());
  for (const auto& [alias, is_duplicated] : alias_duplicated_pairs_) {
    aliases.emplace_back(domain_idx_, uid_, alias, is_duplicated);
  }
  return aliases;
}

bool DomainUser::IsValid() const {
  return domain_idx_ >= 0 && uid_ != kUnsetId && !user_name_.empty() &&
         UTILS::CheckRoleValid(role_);
}

}  // namespace MDOMAIN::RECORD
