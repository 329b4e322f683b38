// A user as seen in one domain.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_USER_H
#define LIB_DOMAIN_RECORD_DOMAIN_USER_H

#include <string>
#include <utility>
#include <vector>

#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "lib-domain/record/unset_id.h"

namespace MDOMAIN::RECORD {

class DomainUser {
 public:
  DomainUser() = default;
  DomainUser(const DomainUser& other) = default;
  DomainUser(DomainUser&& other) = default;
  DomainUser& operator=(const DomainUser& other) = default;
  DomainUser& operator=(DomainUser&& other) = default;
  DomainUser(int domain_idx, unsigned int uid, std::string user_name,
             std::vector<std::pair<std::string, bool>> alias_duplicated_pairs, std::string role);

  int GetDomainIdx() const { return domain_idx_; }
  void SetDomainIdx(const int& domain_idx) { domain_idx_ = domain_idx; }
  unsigned int GetUID() const { return uid_; }
  void SetUID(const unsigned int& uid) { uid_ = uid; }
  std::string GetUserName() const { return user_name_; }
  void SetUserName(const std::string& user_name) { user_name_ = user_name; }
  std::vector<std::pair<std::string, bool>> GetAliasDuplicatedPairs() const {
    return alias_duplicated_pairs_;
  }
  void SetAliasDuplicatedPairs(
      const std::vector<std::pair<std::string, bool>>& alias_duplicated_pairs) {
    alias_duplicated_pairs_ = alias_duplicated_pairs;
  }
  std::string GetRole() const { return role_; }
  void SetRole(const std::string& role) { role_ = role; }
  bool IsBelongingGroupsInDomain() const { return is_belonging_groups_in_domain_; }
  void SetIsBelongingGroupInDomain(const bool& is_belonging_groups_in_domain) {
    is_belonging_groups_in_domain_ = is_belonging_groups_in_domain;
  }
  std::string GetResultGroupRole() const { return result_group_role_; }
  void SetResultGroupRole(const std::string& result_group_role) {
    result_group_role_ = result_group_role;
  }
  bool IsUnderGroupControl() const { return is_under_group_control_; }
  void SetIsUnderGroupControl(const bool& is_under_group_control) {
    is_under_group_control_ = is_under_group_control;
  }
  std::vector<std::string> GetConflictingAccountNames() const { return conflicting_account_names_; }
  void SetConflictingAccountNames(const std::vector<std::string>& conflicting_account_names) {
    conflicting_account_names_ = conflicting_account_names;
  }

  DomainUserRole ExtractDomainUserRole() const;
  std::vector<DomainUserAlias> ExtractDomainUserAliases() const;

  bool IsValid() const;

 private:
  int domain_idx_ = -1;
  unsigned int uid_ = kUnsetId;
  std::string user_name_;
  std::vector<std::pair<std::string, bool>> alias_duplicated_pairs_;
  std::string role_ = "normal";
  bool is_belonging_groups_in_domain_ = false;
  std::string result_group_role_ = "normal";
  bool is_under_group_control_ = false;
  std::vector<std::string> conflicting_account_names_;
};

}  // namespace MDOMAIN::RECORD

#endif  // LIB_DOMAIN_RECORD_DOMAIN_USER_H
