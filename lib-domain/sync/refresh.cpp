// The mirror brought in line with the account system: create, then update, then delete.
#include <unordered_map>
#include <vector>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/user.h"
#include "lib-domain/sync/mirror_difference.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::UTILS {

namespace {

// The known users whose stored name is another one: the others need no write. Of accounts that
// share a uid the last one counts, as it would if all of them were written in order.
std::vector<RECORD::User> RenamedUsers(const std::vector<RECORD::User>& known,
                                       const std::vector<RECORD::User>& mirrored) {
  std::unordered_map<unsigned int, const RECORD::User*> account_by_uid;
  for (const RECORD::User& user : known) {
    if (user.IsValid()) {
      account_by_uid[user.GetUID()] = &user;
    }
  }
  std::vector<RECORD::User> renamed;
  for (const RECORD::User& row : mirrored) {
    const auto account = account_by_uid.find(row.GetUID());
    if (account != account_by_uid.end() && account->second->GetUserName() != row.GetUserName()) {
      renamed.push_back(*account->second);
    }
  }
  return renamed;
}

}  // namespace

bool Updater::_RefreshUsers() {
  std::vector<RECORD::User> accounts;
  if (!TryToGetAllZelmUsers(accounts, summary_.users_complete)) {
    LOG_ERROR("Failed to GetAllZelmUsers");
    return false;
  }
  CONTROL::User control;
  std::vector<RECORD::User> mirrored;
  if (!control.List(DB::UserDBFilter("*"), mirrored)) {
    LOG_ERROR("Failed to list users");
    return false;
  }
  auto difference = INTERNAL::CompareWithMirror(accounts, INTERNAL::IdsOf(mirrored));
  if (!summary_.users_complete) {
    LOG_ERROR("Failed to successfully obtain all zelm users, ignore the process of deleting users");
    difference.deleted_ids.clear();
  }
  const std::vector<unsigned int> new_uids = INTERNAL::IdsOf(difference.created);
  new_uids_.insert(new_uids.begin(), new_uids.end());
  summary_.users = accounts.size();
  summary_.new_users = INTERNAL::NamesOf(difference.created);
  summary_.deleted_uids = difference.deleted_ids;
  LOG_NOTICE(
      "[INFO] - [%zu] zelm_users, [%zu] db_users, [%zu] new_users: [%s], [%zu] update_users, "
      "[%zu] deleted_uids: [%s]",
      accounts.size(), mirrored.size(), difference.created.size(),
      BASE::Join(summary_.new_users, ", ").c_str(), difference.updated.size(),
      difference.deleted_ids.size(), BASE::Join(difference.deleted_ids, ", ").c_str());
  if (!control.Create(difference.created)) {
    LOG_ERROR("Failed to Create users");
    return false;
  }
  if (!control.Set(RenamedUsers(difference.updated, mirrored))) {
    LOG_ERROR("Failed to Set users");
    return false;
  }
  if (!control.Delete(difference.deleted_ids)) {
    LOG_ERROR("Failed to Delete users");
    return false;
  }
  return true;
}

bool Updater::_RefreshGroups() {
  std::vector<RECORD::Group> accounts;
  if (!TryToGetAllZelmGroups(accounts, summary_.groups_complete)) {
    LOG_ERROR("Failed to GetAllZelmGroups");
    return false;
  }
  CONTROL::Group control;
  std::vector<RECORD::Group> mirrored;
  if (!control.List(DB::GroupDBFilter("*"), mirrored)) {
    LOG_ERROR("Failed to list groups");
    return false;
  }
  auto difference = INTERNAL::CompareWithMirror(accounts, INTERNAL::IdsOf(mirrored));
  if (!summary_.groups_complete) {
    LOG_ERROR(
        "Failed to successfully obtain all zelm groups, ignore the process of deleting groups");
    difference.deleted_ids.clear();
  }
  new_groups_ = difference.created;
  summary_.groups = accounts.size();
  summary_.new_groups = INTERNAL::NamesOf(difference.created);
  summary_.deleted_gids = difference.deleted_ids;
  LOG_NOTICE(
      "[INFO] - [%zu] zelm_groups, [%zu] db_groups, [%zu] new_groups: [%s], [%zu] update_groups, "
      "[%zu] deleted_gids: [%s]",
      accounts.size(), mirrored.size(), difference.created.size(),
      BASE::Join(summary_.new_groups, ", ").c_str(), difference.updated.size(),
      difference.deleted_ids.size(), BASE::Join(difference.deleted_ids, ", ").c_str());
  if (!control.Create(difference.created)) {
    LOG_ERROR("Failed to Create groups");
    return false;
  }
  // Known groups are written whether or not they changed: their members may have.
  if (!control.Set(difference.updated)) {
    LOG_ERROR("Failed to Set groups");
    return false;
  }
  if (!control.Delete(difference.deleted_ids)) {
    LOG_ERROR("Failed to Delete groups");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
