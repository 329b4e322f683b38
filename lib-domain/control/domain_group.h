// Whole operations on the groups of domains and on their members' status.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_GROUP_H
#define LIB_DOMAIN_CONTROL_DOMAIN_GROUP_H

#include <string>
#include <tuple>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/domain_group.h"
#include "lib-domain/record/domain_group.h"
#include "lib-domain/record/domain_group_role.h"
#include "lib-domain/record/group.h"

namespace MDOMAIN::CONTROL {

class DomainGroup {
 public:
  bool Create(const int& domain_idx, const std::vector<std::string>& group_short_names);
  bool Create(const int& domain_idx, const std::vector<RECORD::Group>& groups);
  bool Set(const std::vector<RECORD::DomainGroupRole>& roles);
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool List(DB::DomainDBFilter& filter, std::vector<RECORD::DomainGroup>& groups);
  bool List(const int& domain_idx, std::vector<unsigned int>& gids);
  bool GetDomainGroupsCount(DB::DomainDBFilter& filter, int& count);
  bool IsExists(const int& domain_idx, const unsigned int& gid);
  bool ListMembers(const int& domain_idx, const unsigned int& gid, std::vector<unsigned int>& uids);
  bool ListMembers(const int& domain_idx, const unsigned int& gid,
                   std::vector<std::string>& user_names);
  // (uid, user name, "normal" or "removed") of every member of the group, removed ones first.
  bool CheckMemberStatus(const int& domain_idx, const unsigned int& gid,
                         std::vector<std::tuple<unsigned int, std::string, std::string>>& members);
  bool RestoreMemberStatus(const int& domain_idx, const unsigned int& gid,
                           const std::vector<unsigned int>& uids);
  bool RestoreMemberStatus(const int& domain_idx, const std::vector<unsigned int>& gids);

 private:
  bool _CreateImp(const int& domain_idx, const std::vector<RECORD::Group>& groups);
  bool _CheckSingleMemberStatus(const int& domain_idx, const unsigned int& gid,
                                const unsigned int& uid, int& status);
  bool _DeleteRelatedSettings(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool _DeleteAliasRelatedSettings(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool _DeleteDiscalmerRelatedSettings(const int& domain_idx,
                                       const std::vector<unsigned int>& gids);

  DB::DomainGroup store_;
};

namespace INTERNAL {

bool _GetGroupsFromGroupShortNames(const std::vector<std::string>& short_names,
                                   std::vector<RECORD::Group>& groups);
bool _ComposeDomainGroupsRoles(const int& domain_idx, const std::vector<RECORD::Group>& groups,
                               std::vector<RECORD::DomainGroupRole>& roles);
bool _CompareMemberTupleByStatus(const std::tuple<unsigned int, std::string, std::string>& a,
                                 const std::tuple<unsigned int, std::string, std::string>& b);

}  // namespace INTERNAL
}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_GROUP_H
