// A mail domain: one row of domain_view.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_H
#define LIB_DOMAIN_RECORD_DOMAIN_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT Domain {
 public:
  // Index -1 (not stored yet), everything else empty or false.
  Domain() = default;
  // The record of a new primary domain: pattern "<a>", adding users automatically, primary, no
  // index.
  explicit Domain(std::string domain_name);
  Domain(int domain_idx, std::string domain_name, std::string domain_desc,
         std::string default_alias_pattern, bool is_automatically_adding_users,
         bool is_duplicated_alias_exist, bool is_primary);

  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  std::string GetDomainName() const { return domain_name_; }
  void SetDomainName(const std::string& domain_name) { domain_name_ = domain_name; }
  std::string GetDomainDesc() const { return domain_desc_; }
  void SetDomainDesc(const std::string& domain_desc) { domain_desc_ = domain_desc; }
  // Users with a role in the domain, at the time the store listed it; 0 in every other record.
  int GetUserNum() const { return user_num_; }
  void SetUserNum(const int& user_num) { user_num_ = user_num; }
  std::string GetDefaultAliasPattern() const { return default_alias_pattern_; }
  void SetDefaultAliasPattern(const std::string& default_alias_pattern) {
    default_alias_pattern_ = default_alias_pattern;
  }
  bool IsAutomaticallyAddingUsers() const { return is_automatically_adding_users_; }
  void SetIsAutomaticallyAddingUsers(const bool& is_automatically_adding_users) {
    is_automatically_adding_users_ = is_automatically_adding_users;
  }
  // Whether an alias of a user with a role in the domain is flagged duplicated. Computed when the
  // record is read, and not stored with it. The same holds for IsPrimary.
  bool IsDuplicatedAliasExist() const { return is_duplicated_alias_exist_; }
  void SetIsDuplicatedAliasExist(const bool& is_duplicated_alias_exist) {
    is_duplicated_alias_exist_ = is_duplicated_alias_exist;
  }
  bool IsPrimary() const { return is_primary_; }
  void SetIsPrimary(const bool& is_primary) { is_primary_ = is_primary; }

  // Checks that the index is at least 0, then the name, then the pattern. The first that fails is
  // logged and the others are not tried. So a record without its index is not valid yet.
  bool IsValid() const;

 private:
  int domain_idx_ = -1;
  std::string domain_name_;
  std::string domain_desc_;
  int user_num_ = 0;
  std::string default_alias_pattern_;
  bool is_automatically_adding_users_ = false;
  bool is_duplicated_alias_exist_ = false;
  bool is_primary_ = false;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_DOMAIN_H
