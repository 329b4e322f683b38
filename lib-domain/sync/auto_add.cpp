// Adds new accounts and groups to the domains that add them automatically, with aliases from the
// domain's pattern. Removes auto-added roles that a group gives as well.
#include <algorithm>
#include <map>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/sync/membership.h"
#include "lib-domain/utils/default_alias_getter.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {

namespace {

using Uids = std::unordered_set<unsigned int>;

// Appends the record's aliases as those of `uid`. Of several users of one short name the preview
// knows only one, who may be in the domain already.
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
  if (std::all_of(gids_by_domain.begin(), gids_by_domain.end(),
                  [](const auto& domain) { return domain.second.empty(); })) {
    return {};  // without reading the members of all groups
  }
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
  // Domains that add accounts automatically mostly have the same groups.
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
      // Members of a group of the domain get the group's role.
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
