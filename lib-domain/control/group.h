// The mirror of groups: whenever groups are written, the account system is asked for their members.
//
// The members that the account system knows as users are mirrored with the group. It is asked
// before the membership rows are written, so a slow directory never holds the database's write
// lock; the rows of all groups are one transaction. A group whose members cannot be read is logged
// and skipped and keeps its rows; the call succeeds. Of a group that was changed the rows that
// differ are written.
#ifndef LIB_DOMAIN_CONTROL_GROUP_H
#define LIB_DOMAIN_CONTROL_GROUP_H

#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/group.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL {

class MDOMAIN_EXPORT Group {
 public:
  // Appends the mirrored groups that the filter lets through.
  bool List(const DB::GroupDBFilter& filter, std::vector<RECORD::Group>& groups);

  // Mirrors groups with their members. A group that is mirrored keeps its name and its rows;
  // members are only added. An empty list asks nothing of the account system.
  bool Create(const std::vector<RECORD::Group>& groups);

  // Rewrites name, description and, where they differ from the mirror, the members of groups: users
  // who left a group lose their rows. A change of the number of members is logged as a notice. An
  // empty list asks nothing of the account system.
  bool Set(const std::vector<RECORD::Group>& groups);

  // Deletes groups with their membership rows and everything that they have in any domain.
  bool Delete(const std::vector<unsigned int>& gids);

  // Appends the uids of the group's mirrored members.
  bool ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids);

 private:
  class UsersByLowerName;
  using GroupMembers = std::pair<const RECORD::Group*, std::vector<const RECORD::User*>>;
  using UidsByGid = std::map<unsigned int, std::vector<unsigned int>>;
  using Memberships = std::vector<std::pair<unsigned int, unsigned int>>;  // (gid, uid)

  bool _CreateUsersBelongToGroups(const std::vector<RECORD::Group>& groups);
  bool _UpdateUsersBelongToGroups(const std::vector<RECORD::Group>& groups);
  // `locked`: the memberships as they are stored and stay until this writes; null where that is not
  // known, and then all rows of a group are written anew.
  bool _HandleUsersBelongToGroupsImp(const std::vector<RECORD::Group>& groups,
                                     const bool& is_update, const Memberships* locked = nullptr);

  // The members of a group that are among `users_by_lower_name`, in the account system's order.
  // Members that are not are named in a notice; a group all of whose members are unknown is a
  // failure, so that a user list that was cut short does not empty it.
  bool _GetUsersFromGroup(const RECORD::Group& group, const UsersByLowerName& users_by_lower_name,
                          std::vector<const RECORD::User*>& members);
  // Those whom the groups may have, and maybe others.
  bool _GetUsersByLowerName(const std::vector<RECORD::Group>& groups,
                            UsersByLowerName& users_by_lower_name);
  // The mirrored members by gid; gives the gids of groups of which they cannot be read.
  std::unordered_set<unsigned int> _ReadStored(const std::vector<RECORD::Group>& groups,
                                               UidsByGid& stored);
  // Members of groups that have none in the mirror, all at once; false, with nothing written or
  // said, where _WriteMembers has to do it.
  static bool _WriteFirstMembers(const std::vector<GroupMembers>& groups,
                                 std::unordered_set<unsigned int>& mirrored_uids);
  bool _WriteMembers(const RECORD::Group& group, const std::vector<const RECORD::User*>& members,
                     const bool& is_update, const Memberships* locked,
                     std::unordered_set<unsigned int>& mirrored_uids);

  DB::Group store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_GROUP_H
