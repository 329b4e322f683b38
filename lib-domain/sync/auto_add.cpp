// Adds new accounts and groups to the domains that add them automatically, with aliases from the
// domain's pattern, and remembers those that could not be added. Removes auto-added roles that a
// group gives as well.
#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/joining.h"
#include "lib-domain/db/model_image.h"
#include "lib-domain/sync/membership.h"
#include "lib-domain/utils/default_alias_getter.h"
#include "lib-domain/utils/updater.h"
#include "platform/include/account.h"

namespace MDOMAIN::UTILS {

namespace {

using DB::INTERNAL::ModelImage;
using Uids = std::unordered_set<unsigned int>;

// Of more of them all users are read at once.
constexpr size_t kFewUsers = 5000;

std::vector<unsigned int> Sorted(const Uids& uids) {
  std::vector<unsigned int> sorted(uids.begin(), uids.end());
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}

bool IsNamedBefore(const std::pair<std::string, RECORD::User>& one,
                   const std::pair<std::string, RECORD::User>& other) {
  return one.first < other.first;
}

// Appends the record's aliases as those of `uid`; false when none of them is a local part. Of
// several users of one short name the preview knows only one, who may be in the domain already.
bool AppendAliases(const RECORD::DomainUser& record, unsigned int uid,
                   std::vector<RECORD::DomainUserAlias>& aliases) {
  bool has_valid = false;
  for (RECORD::DomainUserAlias& alias : record.ExtractDomainUserAliases()) {
    alias.SetUID(uid);
    has_valid = has_valid || alias.IsValid();
    aliases.push_back(std::move(alias));
  }
  return has_valid;
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

bool Updater::_ListUnfinished() {
  unfinished_uids_.clear();
  unfinished_gids_.clear();
  if (!DB::Joining().List(unfinished_uids_, unfinished_gids_)) {
    LOG_ERROR("Failed to list the accounts that are still to be added to domains");
    return _Fail(0, "the accounts that are still to be added could not be read");
  }
  return true;
}

// Of deleted domains the users stay remembered until there is a domain that could take them.
bool Updater::_RememberUnfinished(bool is_unfinished_known) {
  if (new_uids_.empty() && new_groups_.empty() && unfinished_uids_.empty() &&
      unfinished_gids_.empty()) {
    return true;
  }
  std::vector<int> domain_idxs;
  bool is_remembered = CONTROL::Domain().GetAutoAddingUserDomainIds(domain_idxs);
  DB::IdsByDomain uids;
  DB::IdsByDomain gids;
  for (const int domain_idx : domain_idxs) {
    if (domains_with_users_.count(domain_idx) == 0) {
      uids[domain_idx] = unfinished_uids_[domain_idx];
      uids[domain_idx].insert(new_uids_.begin(), new_uids_.end());
    }
    if (domains_with_groups_.count(domain_idx) == 0) {
      gids[domain_idx] = unfinished_gids_[domain_idx];
      for (const RECORD::Group& group : new_groups_) {
        gids[domain_idx].insert(group.GetGID());
      }
    }
  }
  if (domain_idxs.empty() || !uids.empty()) {
    uids[0] = unfinished_uids_[0];
  }
  DB::Joining store;
  is_remembered =
      is_remembered && (is_unfinished_known ? store.Set(uids, gids) : store.Add(uids, gids));
  if (!is_remembered) {
    LOG_ERROR("Failed to remember the accounts that are still to be added to domains");
    return _Fail(0, "the accounts that are still to be added could not be remembered");
  }
  return true;
}

// The new groups, and those that an earlier run could not add and nobody has added since: adding
// again would reset the role.
bool Updater::_GroupsToAdd(int domain_idx, std::vector<RECORD::Group>& groups) {
  groups = new_groups_;
  std::set<unsigned int> gids = unfinished_gids_[domain_idx];
  if (gids.empty()) {
    return true;
  }
  std::vector<unsigned int> present;
  if (!CONTROL::DomainGroup().List(domain_idx, present)) {
    return false;
  }
  for (const unsigned int gid : present) {
    gids.erase(gid);
  }
  if (gids.empty()) {
    return true;
  }
  DB::GroupDBFilter filter;
  filter.SetGIDs({gids.begin(), gids.end()});
  filter.SetLimit(-1);
  return DB::Group().List(filter, groups);
}

bool Updater::_AutoAddNewGroups(const std::vector<int>& domain_idxs) {
  bool all_added = true;
  CONTROL::DomainGroup control;
  for (const int domain_idx : domain_idxs) {
    std::vector<RECORD::Group> groups;
    if (!_GroupsToAdd(domain_idx, groups) || !control.Create(domain_idx, groups)) {
      LOG_ERROR("Failed to Create domain group for domain_id: [%d]", domain_idx);
      all_added = _Fail(domain_idx, "its new groups could not be added");
      continue;
    }
    domains_with_groups_.insert(domain_idx);
    summary_.added_groups[domain_idx] = groups.size();
  }
  return all_added;
}

bool Updater::AutoAddNewUsers(const std::vector<int>& domain_idxs) {
  return domain_idxs.empty() || _AutoAddNewUsers(domain_idxs, ModelImage::Read());
}

bool Updater::_AutoAddNewUsers(const std::vector<int>& domain_idxs, const ModelImage& image) {
  if (domain_idxs.empty()) {
    return true;
  }
  std::map<int, Standing> standings;
  if (!_ReadStandings(domain_idxs, image, standings)) {
    return false;
  }
  const AttributeScope one_search(AliasPatternsOf(domain_idxs));
  std::vector<RECORD::User> mirrored;
  bool all_added = true;
  for (const int domain_idx : domain_idxs) {
    UsersByShortName candidates;
    if (!_GetCandidates(domain_idx, standings[domain_idx], mirrored, candidates)) {
      LOG_ERROR("Failed to List users");
      return _Fail(0, "the users of the mirror could not be read");
    }
    if (_AutoAddNewUsersTo(domain_idx, standings[domain_idx], candidates)) {
      domains_with_users_.insert(domain_idx);
    } else {
      all_added = false;
    }
  }
  return all_added;
}

// From the image, or read table by table where it knows nothing.
bool Updater::_ReadStandings(const std::vector<int>& domain_idxs, const ModelImage& image,
                             std::map<int, Standing>& standings) {
  if (image.IsKnown()) {
    for (const int domain_idx : domain_idxs) {
      standings[domain_idx] = {image.MembersOfGroups(domain_idx), image.UsersOf(domain_idx),
                               image.RemovedFrom(domain_idx), true};
    }
    return true;
  }
  const INTERNAL::Gid2UidsMap uids_by_gid = INTERNAL::GetGid2UidsMap();
  INTERNAL::Domain2GidsMap gids_by_domain = INTERNAL::GetDomain2GidsMap(domain_idxs);
  std::map<int, Uids> present_by_domain;
  if (!DB::DomainUser().List(domain_idxs, present_by_domain)) {
    LOG_ERROR("Failed to List, domain_id: [%d]", domain_idxs.front());
    return _Fail(0, "the users of the domains could not be read");
  }
  for (const int domain_idx : domain_idxs) {
    Standing& standing = standings[domain_idx];
    Uids removed;
    standing.is_read = CONTROL::DomainUser().GetAllRemovedUIDs(domain_idx, removed);
    if (!standing.is_read) {
      LOG_ERROR("Failed to GetAllRemovedUIDs, domain_id: [%d]", domain_idx);
    }
    standing.covered =
        Sorted(INTERNAL::GetUidsBelongedToGroups(gids_by_domain[domain_idx], uids_by_gid));
    standing.present = Sorted(present_by_domain[domain_idx]);
    standing.removed = Sorted(removed);
  }
  return true;
}

// New in this run, or remembered for this domain; ascending. A domain without users may be the one
// that takes the place of a deleted one.
std::vector<unsigned int> Updater::_UsersToAdd(int domain_idx, bool is_domain_empty) {
  std::vector<unsigned int> uids(new_uids_.begin(), new_uids_.end());
  for (const int owner : {domain_idx, 0}) {
    if (owner != 0 || is_domain_empty) {
      const std::set<unsigned int>& left = unfinished_uids_[owner];
      uids.insert(uids.end(), left.begin(), left.end());
    }
  }
  std::sort(uids.begin(), uids.end());
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  return uids;
}

// The mirrored users who are wanted, by uid: neither present nor removed.
bool Updater::_GetCandidates(int domain_idx, const Standing& standing,
                             std::vector<RECORD::User>& mirrored, UsersByShortName& candidates) {
  const std::vector<unsigned int> to_add = _UsersToAdd(domain_idx, standing.present.empty());
  std::vector<unsigned int> wanted;
  std::set_union(to_add.begin(), to_add.end(), standing.covered.begin(), standing.covered.end(),
                 std::back_inserter(wanted));
  for (const std::vector<unsigned int>* others : {&standing.present, &standing.removed}) {
    std::vector<unsigned int> left;
    std::set_difference(wanted.begin(), wanted.end(), others->begin(), others->end(),
                        std::back_inserter(left));
    wanted.swap(left);
  }
  has_candidates_ = has_candidates_ || !wanted.empty();
  if (!standing.is_read || wanted.empty()) {
    return true;
  }
  std::vector<RECORD::User> few;
  const bool are_many = wanted.size() > kFewUsers;
  DB::UserDBFilter filter("*");
  if (!are_many) {
    filter.SetUIDs(wanted);
  }
  std::vector<RECORD::User>& users = are_many ? mirrored : few;
  if (users.empty() && !CONTROL::User().List(filter, users)) {
    return false;
  }
  candidates.reserve(wanted.size());
  auto next = wanted.begin();  // users mostly come in the same order
  for (const RECORD::User& user : users) {
    if (next == wanted.end() || *next != user.GetUID()) {
      next = std::lower_bound(wanted.begin(), wanted.end(), user.GetUID());
    }
    if (next != wanted.end() && *next == user.GetUID()) {
      candidates.emplace_back(TrimDomainName(user.GetUserName()), user);
      ++next;
    }
  }
  std::stable_sort(candidates.begin(), candidates.end(), IsNamedBefore);
  return true;
}

bool Updater::_AutoAddNewUsersTo(int domain_idx, const Standing& standing,
                                 const UsersByShortName& candidates) {
  if (!standing.is_read) {
    return _Fail(domain_idx, "its removed users could not be read");
  }
  std::vector<std::pair<std::string, std::string>> entries;
  for (const auto& [short_name, user] : candidates) {
    if (entries.empty() || entries.back().second != short_name) {
      entries.emplace_back("user", short_name);
    }
  }
  CONTROL::DomainUser control;
  std::vector<RECORD::DomainUser> records;
  if (!control.PreviewDomainUsers(domain_idx, entries, records)) {
    LOG_ERROR("Failed to Preview domain users, domain_id: [%d]", domain_idx);
    return _Fail(domain_idx, "its alias pattern gives its new users no aliases");
  }
  std::vector<RECORD::User> users_with_role;
  std::vector<RECORD::DomainUserAlias> aliases;
  std::vector<std::string> without_address;
  size_t count = 0;
  auto next = candidates.begin();  // the records come in the same order
  for (const RECORD::DomainUser& record : records) {
    const std::string short_name = TrimDomainName(record.GetUserName());
    if (next == candidates.end() || next->first != short_name) {
      next = std::lower_bound(candidates.begin(), candidates.end(), short_name,
                              [](const auto& candidate, const std::string& wanted) {
                                return candidate.first < wanted;
                              });
    }
    for (; next != candidates.end() && next->first == short_name; ++next) {
      const RECORD::User& user = next->second;
      // Members of a group of the domain get the group's role.
      if (!std::binary_search(standing.covered.begin(), standing.covered.end(), user.GetUID())) {
        users_with_role.push_back(user);
      }
      if (AppendAliases(record, user.GetUID(), aliases)) {
        ++count;
      } else {
        without_address.push_back(user.GetUserName());
      }
    }
  }
  if (!control.CreateFromBackend(domain_idx, users_with_role)) {
    LOG_ERROR("Failed to Create domain users, domain_id: [%d]", domain_idx);
    return _Fail(domain_idx, "its new users could not be added");
  }
  if (!control.CreateUsersAliases(aliases)) {
    LOG_ERROR("Failed to CreateUsersAliases");
    return _Fail(domain_idx, "the addresses of its new users could not be written");
  }
  summary_.added_users[domain_idx] = count;
  if (!without_address.empty()) {
    summary_.without_address[domain_idx] = std::move(without_address);
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
