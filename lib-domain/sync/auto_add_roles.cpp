// The members are those of the mirror, which adding a group has brought up to date.
#include "lib-domain/sync/auto_add_roles.h"

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

// For more, everything is read at once.
constexpr size_t kMostUsers = 2000;

bool ListConcerned(const std::vector<std::string>& user_names,
                   const std::vector<std::string>& group_names, std::vector<unsigned int>& uids) {
  std::vector<RECORD::User> users;
  if (!user_names.empty() && !DB::INTERNAL::ListNamed(user_names, users)) {
    return false;
  }
  for (const RECORD::User& user : users) {
    uids.push_back(user.GetUID());
  }
  for (const std::string& short_name : group_names) {
    std::string name;
    PKORVGroup group = nullptr;
    if (!ShortName2RealName(false, short_name, name) || KORVGroupGet(name.c_str(), &group) < 0) {
      return false;
    }
    const unsigned int gid = group->gid;
    KORVGroupFree(group);
    if (!DB::Group().ListGroupToUsers(gid, uids)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool RemoveUnnecessaryRolesOf(const std::vector<std::string>& user_names,
                              const std::vector<std::string>& group_names) {
  std::vector<unsigned int> uids;
  if (!ListConcerned(user_names, group_names, uids) || uids.size() > kMostUsers) {
    return Updater().RemoveUnnecessaryAutoAddedUserRole();
  }
  std::vector<std::pair<int, unsigned int>> roles;
  if (!DB::INTERNAL::ListRolesGivenByGroups(uids, roles)) {
    LOG_ERROR("Failed to GetAutoAddedUserRoles");
    return false;
  }
  if (!CONTROL::DomainUser().RemoveUsersRoles(roles)) {
    LOG_ERROR("Failed to RemoveUsersRoles");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
