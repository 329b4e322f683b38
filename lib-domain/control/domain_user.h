// Whole operations on the users of domains.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_USER_H
#define LIB_DOMAIN_CONTROL_DOMAIN_USER_H

#include <list>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "lib-domain/record/user.h"

namespace MDOMAIN::CONTROL {

class DomainUser {
 public:
  bool List(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users);
  bool ListWithExtraInfo(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users);
  bool List(const int& domain_idx, std::list<std::string>& user_names);
  bool List(const int& domain_idx, std::vector<unsigned int>& uids);
  bool GetDomainUsersCount(DB::DomainDBFilter& filter, int& count);
  bool ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails);
  bool GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain);
  bool GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles);
  bool IsExists(const int& domain_idx, const std::string& user_name);
  bool IsAliasExist(const std::string& alias);
  bool GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids);
  bool RemoveUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs);

  // The user's aliases in the domain in stored order; an unknown user or none: true and empty.
  bool GetDomainUserAlias(const int& domain_idx, const unsigned int& uid,
                          std::vector<std::string>& aliases);
  bool GetDomainUserAlias(const int& domain_idx, const std::string& user_name,
                          std::vector<std::string>& aliases);
  // The account name of the alias's owner, one that is not flagged duplicated first; no owner: true
  // and empty.
  bool GetDomainAliasUser(const int& domain_idx, const std::string& alias, std::string& user_name);

  bool CreateFromUser(const int& domain_idx, const std::vector<std::string>& user_short_names);
  bool CreateFromBackend(const int& domain_idx, const std::vector<RECORD::User>& users);
  // Adds aliases to users of any domains; those that the user already has are dropped from
  // `aliases`, those that collide with another user's are flagged in it and stored.
  bool CreateUsersAliases(std::vector<RECORD::DomainUserAlias>& aliases);
  bool Set(std::vector<RECORD::DomainUser>& users, std::vector<RECORD::DomainUser>& conflicts);
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool PreviewDomainUsers(const int& domain_idx,
                          std::vector<std::pair<std::string, std::string>> entries,
                          std::vector<RECORD::DomainUser>& preview);
  bool UpdateDuplicateAlias(const std::vector<int>& domain_idxs);
  bool UpdateAllDuplicateAlias();
  bool CreateUsersRolesForNonGroupUsers();
  bool RemoveUsersWithoutRole();
  bool GetResultGroupRole(const int& domain_idx, const unsigned int& uid, std::string& role);

 private:
  bool _CreateImp(const int& domain_idx, const std::vector<RECORD::User>& users,
                  const bool& is_auto_added);
  bool _PreviewDomainUsersFromUserShortNames(const int& domain_idx,
                                             const std::vector<std::string>& user_short_names,
                                             std::vector<RECORD::DomainUser>& preview);
  bool _CheckAndSetDomainUsersDuplicated(std::vector<RECORD::DomainUser>& users);
  bool _GetCompareDBDomainUsers(const std::vector<int>& domain_idxs,
                                std::vector<RECORD::DomainUser>& users);
  bool _GetCompareDBDomainUsersAliases(const std::vector<int>& domain_idxs,
                                       std::vector<RECORD::DomainUserAlias>& aliases);
  bool _DeleteRelatedSettings(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool _DeleteAliasRelatedSettings(const int& domain_idx, const std::list<std::string>& names);
  bool _DeleteBCCRelatedSettings(const int& domain_idx, const std::list<std::string>& names);
  bool _DeleteDiscalmerRelatedSettings(const int& domain_idx,
                                       const std::vector<unsigned int>& uids);

  DB::DomainUser store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_USER_H
