// The store of groups with a role in a domain and of what follows from their membership.
#ifndef LIB_DOMAIN_DB_DOMAIN_GROUP_H
#define LIB_DOMAIN_DB_DOMAIN_GROUP_H

#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/domain_group.h"
#include "lib-domain/record/domain_group_role.h"

namespace MDOMAIN::DB {

class DomainGroup {
 public:
  DomainGroup();

  bool SetGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles);
  bool CreateGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles);
  bool DeleteGroupsRoles(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool DeleteMemberRemovedRecord(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool IsExists(const int& domain_idx, const unsigned int& gid);
  bool GetResultGroupRole(const int& domain_idx, const std::vector<unsigned int>& gids,
                          std::string& role);
  // For every user who is a member of a group of the domain, the smallest role of those groups
  // (removal records and own roles do not count here), with one statement.
  bool GetResultGroupRoles(const int& domain_idx,
                           std::unordered_map<unsigned int, std::string>& role_by_uid);
  bool GetDomainGroupsCount(DomainDBFilter& filter, int& count);
  bool ListDomainGroups(DomainDBFilter& filter, std::vector<RECORD::DomainGroup>& groups);
  bool CheckSingleMemberStatus(const int& domain_idx, const unsigned int& gid,
                               const unsigned int& uid, int& status);
  bool FindUsersBelongToGIDsOnly(const int& domain_idx, const std::vector<unsigned int>& gids,
                                 std::vector<unsigned int>& uids);
  bool FindUsersEffectedByGIDsOnly(const int& domain_idx, const std::vector<unsigned int>& gids,
                                   std::vector<unsigned int>& uids);

 private:
  bool _CheckMemberExists(const int& domain_idx, const unsigned int& uid, bool& exists);

  DomainDBHandler* handler_;
  int status_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_GROUP_H
