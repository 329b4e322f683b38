// Whole operations on the groups of domains and on their members' status.
//
// Members of a group of a domain are users of the domain with the group's role. A member who was
// taken out of the domain is on record as removed, for each group, until restored. Every operation
// stops at the first step that fails, logs it and returns false; nothing is rolled back across
// steps.
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
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL {

class MDOMAIN_EXPORT DomainGroup {
 public:
  // Mirrors the groups with their members and gives them the role "normal" in the domain; a group
  // that is there already is set back to it. A name that the account system does not know fails the
  // whole call before anything is written. Members get no aliases here.
  bool Create(const int& domain_idx, const std::vector<std::string>& group_short_names);
  // The same from records, whose names are not asked for again.
  bool Create(const int& domain_idx, const std::vector<RECORD::Group>& groups);

  // Adds groups to their domains or changes their roles; invalid records are skipped.
  bool Set(const std::vector<RECORD::DomainGroupRole>& roles);

  // Takes groups and their removal records out of the domain. Members who are in no other group of
  // the domain leave it, too: they lose their aliases and roles, also direct ones. Then what names
  // the groups in the alias table and the disclaimers is removed, and the users are announced to
  // the SMTP side (a failure of that is only logged).
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& gids);

  bool List(DB::DomainDBFilter& filter, std::vector<RECORD::DomainGroup>& groups);
  // Appends the gids of all groups of the domain.
  bool List(const int& domain_idx, std::vector<unsigned int>& gids);
  bool GetDomainGroupsCount(DB::DomainDBFilter& filter, int& count);
  bool IsExists(const int& domain_idx, const unsigned int& gid);

  // Appends the members of the group who are users of the domain, in the group's order (the names:
  // in the domain's).
  bool ListMembers(const int& domain_idx, const unsigned int& gid, std::vector<unsigned int>& uids);
  bool ListMembers(const int& domain_idx, const unsigned int& gid,
                   std::vector<std::string>& user_names);

  // Appends (uid, user name, "normal" or "removed") of every member of the group, removed ones
  // first. A member is "normal" who has an alias in the domain, through whatever membership.
  // Members who are not mirrored have an empty name.
  bool CheckMemberStatus(const int& domain_idx, const unsigned int& gid,
                         std::vector<std::tuple<unsigned int, std::string, std::string>>& members);

  // Forgets that users were removed, for every group of the domain: `gid` does not matter. They get
  // no aliases here.
  bool RestoreMemberStatus(const int& domain_idx, const unsigned int& gid,
                           const std::vector<unsigned int>& uids);
  // The same for all members of the groups; no groups: nothing.
  bool RestoreMemberStatus(const int& domain_idx, const std::vector<unsigned int>& gids);

 private:
  bool _CreateImp(const int& domain_idx, const std::vector<RECORD::Group>& groups);
  // 0: the user has an alias in the domain; 2: the user has none. `gid` does not matter.
  bool _CheckSingleMemberStatus(const int& domain_idx, const unsigned int& gid,
                                const unsigned int& uid, int& status);
  bool _DeleteRows(const int& domain_idx, const std::vector<unsigned int>& gids,
                   const std::vector<unsigned int>& uids);
  bool _DeleteRelatedSettings(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool _DeleteAliasRelatedSettings(const int& domain_idx, const std::vector<unsigned int>& gids);
  bool _DeleteDiscalmerRelatedSettings(const int& domain_idx,
                                       const std::vector<unsigned int>& gids);

  DB::DomainGroup store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_GROUP_H
