// A role given to a user directly: one row of domain_user_role_table.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_USER_ROLE_H
#define LIB_DOMAIN_RECORD_DOMAIN_USER_ROLE_H

#include <string>

#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

class MDOMAIN_EXPORT DomainUserRole {
 public:
  DomainUserRole() = default;
  DomainUserRole(int domain_idx, unsigned int uid, std::string role, bool is_auto_added);

  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  unsigned int GetUID() const { return uid_; }
  void SetUID(const unsigned int& uid) { uid_ = uid; }
  std::string GetRole() const { return role_; }
  void SetRole(const std::string& role) { role_ = role; }
  // Whether the role was given because the account was added automatically. Such a role is dropped
  // once a group gives one.
  bool IsAutoAdded() const { return is_auto_added_; }
  void SetIsAutoAdded(const bool& is_auto_added) { is_auto_added_ = is_auto_added; }

  // Whether it has an index of at least 0, a uid and a valid role. Logs nothing.
  bool IsValid() const;

 private:
  int domain_idx_ = -1;
  unsigned int uid_ = kUnsetId;
  std::string role_ = "normal";
  bool is_auto_added_ = false;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_DOMAIN_USER_ROLE_H
