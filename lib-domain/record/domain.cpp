// A mail domain and the rules by which its record is acceptable.
#include "lib-domain/record/domain.h"

#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/utils/domain_utils.h"

namespace MDOMAIN::RECORD {

Domain::Domain(std::string domain_name)
    : domain_name_(std::move(domain_name)),
      default_alias_pattern_("<a>"),
      is_automatically_adding_users_(true),
      is_primary_(true) {}

Domain::Domain(int domain_idx, std::string domain_name, std::string domain_desc,
               std::string default_alias_pattern, bool is_automatically_adding_users,
               bool is_duplicated_alias_exist, bool is_primary)
    : domain_idx_(domain_idx),
      domain_name_(std::move(domain_name)),
      domain_desc_(std::move(domain_desc)),
      default_alias_pattern_(std::move(default_alias_pattern)),
      is_automatically_adding_users_(is_automatically_adding_users),
      is_duplicated_alias_exist_(is_duplicated_alias_exist),
      is_primary_(is_primary) {}

bool Domain::IsValid() const {
  if (domain_idx_ < 0) {
    LOG_ERROR("Domain ID [%d] is invalid", domain_idx_);
    return false;
  }
  if (!UTILS::IsDomainNameValid(domain_name_)) {
    LOG_ERROR("Domain name [%s] is invalid", domain_name_.c_str());
    return false;
  }
  if (!UTILS::IsDomainDefaultAliasPatternValid(default_alias_pattern_)) {
    LOG_ERROR("Domain default alias pattern [%s] is invalid", default_alias_pattern_.c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::RECORD
