// The mirror of groups: whenever groups are written, their members are asked of the account system.
#ifndef LIB_DOMAIN_CONTROL_GROUP_H
#define LIB_DOMAIN_CONTROL_GROUP_H

#include <string>
#include <unordered_map>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/group.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"

namespace MDOMAIN::CONTROL {

class Group {
 public:
  bool List(const DB::GroupDBFilter& filter, std::vector<RECORD::Group>& groups);
  bool Create(const std::vector<RECORD::Group>& groups);
  bool Set(const std::vector<RECORD::Group>& groups);
  bool Delete(const std::vector<unsigned int>& gids);
  bool ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids);

 private:
  bool _CreateUsersBelongToGroups(const std::vector<RECORD::Group>& groups);
  bool _UpdateUsersBelongToGroups(const std::vector<RECORD::Group>& groups);
  bool _HandleUsersBelongToGroupsImp(const std::vector<RECORD::Group>& groups,
                                     const bool& is_update);
  bool _GetUsersFromGroup(const RECORD::Group& group,
                          const std::unordered_map<std::string, RECORD::User>& users_by_lower_name,
                          std::vector<RECORD::User>& members);

  DB::Group store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_GROUP_H
