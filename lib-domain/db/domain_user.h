// The store of a domain's users: direct roles, aliases, removal records, effective roles.
#ifndef LIB_DOMAIN_DB_DOMAIN_USER_H
#define LIB_DOMAIN_DB_DOMAIN_USER_H

#include <list>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"

namespace MDOMAIN::DB {

class DomainUser {
 public:
  DomainUser();

  bool IsAliasExist(const std::string& alias);
  bool IsExists(const int& domain_idx, const std::string& user_name);
  bool GetDomainUsersCount(DomainDBFilter& filter, int& count);
  bool GetDistinctUIDs(DomainDBFilter& filter, std::vector<unsigned int>& uids);
  bool ListDomainUsers(DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users,
                       const bool& with_group_control);
  bool List(const int& domain_idx, std::vector<unsigned int>& uids);
  bool List(const int& domain_idx, std::vector<RECORD::DomainUser>& users);
  bool List(const int& domain_idx, std::list<std::string>& user_names);
  bool ListDomainUsersAliases(const std::vector<int>& domain_idxs,
                              std::vector<RECORD::DomainUserAlias>& aliases);
  // `alias` goes into the statement as it is: callers double its apostrophes.
  bool GetAliasUsers(const int& domain_idx, const std::string& alias,
                     std::vector<RECORD::DomainUserAlias>& aliases);
  // The aliases of one user of a domain in stored order, by uid or by account name (case ignored).
  bool GetUserAliases(const int& domain_idx, const unsigned int& uid,
                      std::vector<std::string>& aliases);
  bool GetUserAliases(const int& domain_idx, const std::string& user_name,
                      std::vector<std::string>& aliases);
  // GetUserAliases for every user of a domain with one read, by account name in lower case (ASCII).
  // `aliases_by_user` is replaced on success and untouched on failure.
  bool GetAllUserAliases(
      const int& domain_idx,
      std::unordered_map<std::string, std::vector<std::string>>& aliases_by_user);
  bool GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles);
  bool FindBeingEffectedGroups(const int& domain_idx, const unsigned int& uid,
                               std::vector<unsigned int>& gids);
  // FindBeingEffectedGroups for many users with one read; users without any are not in the map.
  bool FindBeingEffectedGroups(const int& domain_idx, const std::vector<unsigned int>& uids,
                               std::map<unsigned int, std::vector<unsigned int>>& gids_by_uid);
  bool GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain);
  bool ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails);
  bool GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids);

  bool SetUsersRoles(const std::vector<RECORD::DomainUserRole>& roles);
  bool CreateUsersRoles(const std::vector<RECORD::DomainUserRole>& roles);
  bool DeleteUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs);
  bool DeleteUsersRoles(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool CreateUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases);
  bool SetUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases);
  bool DeleteUsersAliases(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool RemoveUsersFromDomainGroups(
      const std::vector<std::tuple<int, unsigned int, unsigned int>>& removals);
  bool DeleteRemovedRecord(const int& domain_idx, const std::vector<unsigned int>& uids);

 private:
  bool _CheckUnderControl(std::vector<RECORD::DomainUser>& users);

  DomainDBHandler* handler_;
  int status_;
};

namespace INTERNAL {

bool _CompareAliasDuplicatedPairByIsDuplicated(const std::pair<std::string, bool>& a,
                                               const std::pair<std::string, bool>& b);
void _MergeDomainUsers(const std::vector<RECORD::DomainUser>& rows,
                       std::vector<RECORD::DomainUser>& users);

}  // namespace INTERNAL
}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_USER_H
