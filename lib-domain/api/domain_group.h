// The public interface for the groups of domains and their members' status.
//
// Reading calls are those of CONTROL::DomainGroup: List, GetDomainGroupsCount, ListMembers. Every
// changing call ends by publishing all domain data and is false when that fails, although the
// change stays: the error number 5635 says so.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_DOMAIN_GROUP_H
#define LIB_DOMAIN_API_DOMAIN_GROUP_H

#include <string>
#include <tuple>
#include <vector>

#include "lib-domain/control/domain_group.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

class MDOMAIN_EXPORT DomainGroup : public CONTROL::DomainGroup {
 public:
  // Appends (uid, user name, "normal" or "removed") of every member of the group; members who were
  // removed from the domain come first.
  bool GetMemberStatus(const int& domain_idx, const unsigned int& gid,
                       std::vector<std::tuple<unsigned int, std::string, std::string>>& members);
  // Writes the roles of groups in domains; invalid records are left out.
  bool Set(const std::vector<RECORD::DomainGroupRole>& roles);
  // Takes groups out of the domain, and with them the addresses of members who are in no other
  // group of the domain, even if such a member had been added by name too.
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& gids);
  // Takes back the removal of all members of the groups, and gives an address in the domain to
  // those who have none.
  bool RestoreMemberStatus(const int& domain_idx, const std::vector<unsigned int>& gids);
  // The same for chosen users, for every group of the domain that they were removed from.
  bool RestoreMemberStatus(const int& domain_idx, const unsigned int& gid,
                           const std::vector<unsigned int>& uids);

  // 5635 when the last changing call, of whichever object, stored its change and could not publish
  // it, else 0.
  static unsigned int GetErrorCode();

 private:
  static bool _AddAndTrigger(int domain_idx);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_DOMAIN_GROUP_H
