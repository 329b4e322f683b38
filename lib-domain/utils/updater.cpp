// The refresh and what follows from it. Creating the first domain stands in updater_init.cpp,
// publishing in updater_publish.cpp.
#include "lib-domain/utils/updater.h"

#include <map>
#include <unordered_map>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/utils/account_source.h"
#include "lib-domain/utils/default_alias_getter.h"
#include "lib-domain/utils/mirror_difference.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {

namespace {

using Uids = std::unordered_set<unsigned int>;

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

// The preview knows one user of a short name, perhaps one who is in the domain already: its aliases
// go to the user they are meant for.
void AppendAliases(const RECORD::DomainUser& record, unsigned int uid,
                   std::vector<RECORD::DomainUserAlias>& aliases) {
  for (RECORD::DomainUserAlias& alias : record.ExtractDomainUserAliases()) {
    alias.SetUID(uid);
    aliases.push_back(std::move(alias));
  }
}

// (domain, uid) of those roles whose user belongs to a group of the domain.
std::vector<std::pair<int, unsigned int>> RolesThatGroupsGive(
    const std::vector<RECORD::DomainUserRole>& roles) {
  if (roles.empty()) {
    return {};
  }
  INTERNAL::Domain2GidsMap gids_by_domain = INTERNAL::GetAllDomain2GidsMap();
  const INTERNAL::Gid2UidsMap uids_by_gid = INTERNAL::GetGid2UidsMap();
  std::map<int, Uids> covered_by_domain;
  std::vector<std::pair<int, unsigned int>> given;
  for (const RECORD::DomainUserRole& role : roles) {
    const int domain_idx = role.GetDomainIdx();
    const auto [covered, is_first] = covered_by_domain.try_emplace(domain_idx);
    if (is_first) {
      covered->second = INTERNAL::GetUidsBelongedToGroups(gids_by_domain[domain_idx], uids_by_gid);
    }
    if (covered->second.count(role.GetUID()) != 0) {
      given.emplace_back(domain_idx, role.GetUID());
    }
  }
  return given;
}

std::vector<std::string> AliasPatternsOf(const std::vector<int>& domain_idxs) {
  std::vector<std::string> patterns;
  DB::Domain store;
  for (const int domain_idx : domain_idxs) {
    std::string pattern;
    if (store.GetDefaultAliasPattern(domain_idx, pattern)) {
      patterns.push_back(pattern);
    }
  }
  return patterns;
}

}  // namespace

bool Updater::Refresh() {
  summary_ = RefreshSummary();
  new_uids_.clear();
  new_groups_.clear();
  const korvmailserver::AccountSnapshot snapshot;
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  const bool refreshed = _RefreshSteps();
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to commit what was refreshed");
    return false;
  }
  return refreshed;
}

bool Updater::_RefreshSteps() {
  if (!_RefreshUsers()) {
    LOG_ERROR("Failed to _RefreshUsers");
    return false;
  }
  if (!_RefreshGroups()) {
    LOG_ERROR("Failed to _RefreshGroups");
    return false;
  }
  if (!_UpdateDomainUsersGroups()) {
    LOG_ERROR("Failed to _UpdateDomainUsersGroups");
    return false;
  }
  return true;
}

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

bool Updater::_UpdateDomainUsersGroups() {
  CONTROL::DomainUser users;
  if (!users.UpdateAllDuplicateAlias()) {
    LOG_ERROR("Failed to UpdateAllDuplicateAlias");
    return false;
  }
  if (!users.CreateUsersRolesForNonGroupUsers()) {
    LOG_ERROR("Failed to CreateUsersRolesForNonGroupUsers");
    return false;
  }
  std::vector<int> domain_idxs;
  if (!CONTROL::Domain().GetAutoAddingUserDomainIds(domain_idxs)) {
    LOG_ERROR("Failed to GetAutoAddingUserDomainIds");
    return false;
  }
  if (!_AutoAddNewGroups(domain_idxs)) {
    LOG_ERROR("Failed to _AutoAddNewGroups");
    return false;
  }
  if (!_AutoAddNewUsers(domain_idxs)) {
    LOG_ERROR("Failed to _AutoAddNewUsers");
    return false;
  }
  if (!RemoveUnnecessaryAutoAddedUserRole()) {
    LOG_ERROR("Failed to RemoveUnnecessaryAutoAddedUserRole");
    return false;
  }
  return true;
}

bool Updater::_AutoAddNewGroups(const std::vector<int>& domain_idxs) {
  bool all_added = true;
  CONTROL::DomainGroup control;
  for (const int domain_idx : domain_idxs) {
    if (!control.Create(domain_idx, new_groups_)) {
      LOG_ERROR("Failed to Create domain group for domain_id: [%d]", domain_idx);
      all_added = false;
    }
  }
  return all_added;
}

bool Updater::AutoAddNewUsers(const std::vector<int>& domain_idxs) {
  return _AutoAddNewUsers(domain_idxs);
}

bool Updater::_AutoAddNewUsers(const std::vector<int>& domain_idxs) {
  if (domain_idxs.empty()) {
    return true;
  }
  const INTERNAL::Gid2UidsMap uids_by_gid = INTERNAL::GetGid2UidsMap();
  INTERNAL::Domain2GidsMap gids_by_domain = INTERNAL::GetDomain2GidsMap(domain_idxs);
  std::vector<RECORD::User> mirrored;
  if (!CONTROL::User().List(DB::UserDBFilter("*"), mirrored)) {
    LOG_ERROR("Failed to List users");
    return false;
  }
  std::map<int, Uids> present_by_domain;
  if (!DB::DomainUser().List(domain_idxs, present_by_domain)) {
    LOG_ERROR("Failed to List, domain_id: [%d]", domain_idxs.front());
    return false;
  }
  const AttributeScope one_search(AliasPatternsOf(domain_idxs));
  // Domains that add accounts by themselves mostly have the same groups.
  std::vector<unsigned int> gids;
  Uids covered;
  for (const int domain_idx : domain_idxs) {
    if (gids_by_domain[domain_idx] != gids) {
      gids = gids_by_domain[domain_idx];
      covered = INTERNAL::GetUidsBelongedToGroups(gids, uids_by_gid);
    }
    if (!_AutoAddNewUsersTo(domain_idx, mirrored, covered, present_by_domain[domain_idx])) {
      return false;
    }
  }
  return true;
}

bool Updater::_GetCandidates(int domain_idx, const std::vector<RECORD::User>& mirrored,
                             const std::unordered_set<unsigned int>& covered_uids,
                             const std::unordered_set<unsigned int>& present_uids,
                             UsersByShortName& candidates) {
  Uids removed;
  if (!CONTROL::DomainUser().GetAllRemovedUIDs(domain_idx, removed)) {
    LOG_ERROR("Failed to GetAllRemovedUIDs, domain_id: [%d]", domain_idx);
    return false;
  }
  for (const RECORD::User& user : mirrored) {
    const unsigned int uid = user.GetUID();
    const bool is_wanted = new_uids_.count(uid) != 0 || covered_uids.count(uid) != 0;
    if (is_wanted && present_uids.count(uid) == 0 && removed.count(uid) == 0) {
      candidates[TrimDomainName(user.GetUserName())].push_back(user);
    }
  }
  return true;
}

bool Updater::_AutoAddNewUsersTo(int domain_idx, const std::vector<RECORD::User>& mirrored,
                                 const std::unordered_set<unsigned int>& covered_uids,
                                 const std::unordered_set<unsigned int>& present_uids) {
  UsersByShortName candidates;
  if (!_GetCandidates(domain_idx, mirrored, covered_uids, present_uids, candidates)) {
    return false;
  }
  std::vector<std::pair<std::string, std::string>> entries;
  for (const auto& [short_name, users] : candidates) {
    entries.emplace_back("user", short_name);
  }
  CONTROL::DomainUser control;
  std::vector<RECORD::DomainUser> records;
  if (!control.PreviewDomainUsers(domain_idx, entries, records)) {
    LOG_ERROR("Failed to Preview domain users, domain_id: [%d]", domain_idx);
    return false;
  }
  std::vector<RECORD::User> users_with_role;
  std::vector<RECORD::DomainUserAlias> aliases;
  for (const RECORD::DomainUser& record : records) {
    for (const RECORD::User& user : candidates[TrimDomainName(record.GetUserName())]) {
      // Whom a group covers has the group's role.
      if (covered_uids.count(user.GetUID()) == 0) {
        users_with_role.push_back(user);
      }
      AppendAliases(record, user.GetUID(), aliases);
    }
  }
  if (!control.CreateFromBackend(domain_idx, users_with_role)) {
    LOG_ERROR("Failed to Create domain users, domain_id: [%d]", domain_idx);
    return false;
  }
  if (!control.CreateUsersAliases(aliases)) {
    LOG_ERROR("Failed to CreateUsersAliases");
    return false;
  }
  return true;
}

bool Updater::RemoveUnnecessaryAutoAddedUserRole() {
  CONTROL::DomainUser control;
  std::vector<RECORD::DomainUserRole> roles;
  if (!control.GetAutoAddedUsersRoles(roles)) {
    LOG_ERROR("Failed to GetAutoAddedUserRoles");
    return false;
  }
  if (!control.RemoveUsersRoles(RolesThatGroupsGive(roles))) {
    LOG_ERROR("Failed to RemoveUsersRoles");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
