// The store of groups with a role in a domain and of what follows from their membership.
//
// Operations return true on success. A failure is false and one error line that says what failed,
// after a line with SQLite's reason (of a write a warning, of a read an error too); out arguments
// may then be partly filled. Writes are one transaction each: all or nothing. Texts end at their
// first zero byte; one that makes a statement longer than 999,999 bytes fails the operation.
#ifndef LIB_DOMAIN_DB_DOMAIN_GROUP_H
#define LIB_DOMAIN_DB_DOMAIN_GROUP_H

#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/domain_group.h"
#include "lib-domain/record/domain_group_role.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
}

class MDOMAIN_EXPORT DomainGroup {
 public:
  // Borrows the process-wide handler; without one every operation fails.
  DomainGroup();

  // Gives each group its role in the domain, whether it had one or not; domain and group must
  // exist. Invalid records are left out silently.
  bool SetGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles);
  bool CreateGroupsRoles(const std::vector<RECORD::DomainGroupRole>& roles);
  // Takes the groups out of the domain; the members' aliases and removal records stay.
  bool DeleteGroupsRoles(const int& domain_idx, const std::vector<unsigned int>& gids);
  // Forgets which users were taken out of these groups in the domain.
  bool DeleteMemberRemovedRecord(const int& domain_idx, const std::vector<unsigned int>& gids);
  // Whether the group has a role in the domain. False also when the query fails.
  bool IsExists(const int& domain_idx, const unsigned int& gid);
  // The smallest role of these groups in the domain, so "domain_admin" before "normal"; empty when
  // none of them has one.
  bool GetResultGroupRole(const int& domain_idx, const std::vector<unsigned int>& gids,
                          std::string& role);
  // For every user who is a member of a group of the domain, the smallest role of those groups
  // (removal records and own roles do not count here), with one statement.
  bool GetResultGroupRoles(const int& domain_idx,
                           std::unordered_map<unsigned int, std::string>& role_by_uid);
  // The same of these users alone.
  bool GetResultGroupRolesOf(const int& domain_idx, const std::vector<unsigned int>& uids,
                             std::unordered_map<unsigned int, std::string>& role_by_uid);
  // The number of distinct matching groups, whatever the filter's page.
  bool GetDomainGroupsCount(DomainDBFilter& filter, int& count);
  // Appends the matching groups, one per domain they are in; stored ones that are not valid are
  // left out.
  bool ListDomainGroups(DomainDBFilter& filter, std::vector<RECORD::DomainGroup>& groups);
  // 0 when the user has an alias in the domain, however it came there, else 2. The group makes no
  // difference.
  bool CheckSingleMemberStatus(const int& domain_idx, const unsigned int& gid,
                               const unsigned int& uid, int& status);
  // Appends the group's members with an alias in the domain, in uid order: those for which
  // CheckSingleMemberStatus gives 0.
  bool ListMembersInDomain(const int& domain_idx, const unsigned int& gid,
                           std::vector<unsigned int>& uids);
  // Appends the members of these groups who are in no other group of the domain, whatever their own
  // roles and removals. A member of two of the groups can stand twice.
  bool FindUsersBelongToGIDsOnly(const int& domain_idx, const std::vector<unsigned int>& gids,
                                 std::vector<unsigned int>& uids);
  // Appends the users whose role in the domain comes from these groups and no other, so none with a
  // role of their own and none who were taken out. A member of two of the groups stands twice.
  bool FindUsersEffectedByGIDsOnly(const int& domain_idx, const std::vector<unsigned int>& gids,
                                   std::vector<unsigned int>& uids);

 private:
  bool _CheckMemberExists(const int& domain_idx, const unsigned int& uid, bool& exists);

  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_GROUP_H
