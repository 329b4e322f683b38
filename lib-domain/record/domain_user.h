// A user as seen in one domain.
#ifndef LIB_DOMAIN_RECORD_DOMAIN_USER_H
#define LIB_DOMAIN_RECORD_DOMAIN_USER_H

#include <string>
#include <utility>
#include <vector>

#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "lib-domain/record/unset_id.h"
#include "platform/include/export.h"

namespace MDOMAIN::RECORD {

// Assembled from the rows of domain_user_view and, for what is only filled in when it is asked for,
// from further queries.
class MDOMAIN_EXPORT DomainUser {
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
  // Every alias of the user in the domain with its is-duplicated flag, in the order given.
  std::vector<std::pair<std::string, bool>> GetAliasDuplicatedPairs() const {
    return alias_duplicated_pairs_;
  }
  void SetAliasDuplicatedPairs(
      const std::vector<std::pair<std::string, bool>>& alias_duplicated_pairs) {
    alias_duplicated_pairs_ = alias_duplicated_pairs;
  }
  // The effective role: the user's own, else the smallest of the user's groups'; empty without any.
  std::string GetRole() const { return role_; }
  void SetRole(const std::string& role) { role_ = role; }
  // Whether the user is a member of a group that has a role in this domain. False until asked.
  bool IsBelongingGroupsInDomain() const { return is_belonging_groups_in_domain_; }
  void SetIsBelongingGroupInDomain(const bool& is_belonging_groups_in_domain) {
    is_belonging_groups_in_domain_ = is_belonging_groups_in_domain;
  }
  // The role that the user's groups give, whatever the own role is. "normal" until asked.
  std::string GetResultGroupRole() const { return result_group_role_; }
  void SetResultGroupRole(const std::string& result_group_role) {
    result_group_role_ = result_group_role;
  }
  // Whether the user has no own role in the domain. False until asked.
  bool IsUnderGroupControl() const { return is_under_group_control_; }
  void SetIsUnderGroupControl(const bool& is_under_group_control) {
    is_under_group_control_ = is_under_group_control;
  }
  // Names of the other accounts whose aliases collide with this user's. Empty until asked.
  std::vector<std::string> GetConflictingAccountNames() const { return conflicting_account_names_; }
  void SetConflictingAccountNames(const std::vector<std::string>& conflicting_account_names) {
    conflicting_account_names_ = conflicting_account_names;
  }

  // The row of this user's role, not marked as added automatically.
  DomainUserRole ExtractDomainUserRole() const;
  // One row per alias, in order.
  std::vector<DomainUserAlias> ExtractDomainUserAliases() const;

  // Whether it has an index of at least 0, a uid, a name and a valid role. The aliases are not
  // examined: each extracted row is valid or not by itself. Logs nothing.
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
