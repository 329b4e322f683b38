// Mirroring groups and rebuilding who belongs to them.
#include "lib-domain/control/group.h"

#include <algorithm>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/joining.h"
#include "lib-domain/db/user.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"
#include "platform/include/scope_guard.h"
#include "platform/include/string_list.h"

namespace MDOMAIN::CONTROL {

namespace {

constexpr int kMemberListCapacity = 1024;
// Of more the whole mirror is read.
constexpr size_t kFewMembers = 20000;

void LogChangedCount(unsigned int gid, size_t old_count, size_t new_count) {
  if (old_count != new_count) {
    LOG_NOTICE("group [%u]'s member count has changed from [%zu] to [%zu]", gid, old_count,
               new_count);
  }
}

// Order and repeats do not matter: the membership table has neither.
bool AreTheMembers(const std::vector<unsigned int>& uids,
                   const std::vector<RECORD::User>& members) {
  std::unordered_set<unsigned int> member_uids;
  member_uids.reserve(members.size());
  for (const RECORD::User& member : members) {
    member_uids.insert(member.GetUID());
  }
  return uids.size() == member_uids.size() &&
         std::all_of(uids.begin(), uids.end(),
                     [&member_uids](unsigned int uid) { return member_uids.count(uid) != 0; });
}

// Those of the members, and maybe others, who are mirrored.
template <typename MembersByGroup>
bool ListMirrored(const MembersByGroup& members_by_group, std::vector<RECORD::User>& mirrored) {
  std::vector<unsigned int> uids = {0};  // without any the filter would let everybody through
  for (const auto& [group, members] : members_by_group) {
    for (const RECORD::User& member : members) {
      uids.push_back(member.GetUID());
    }
  }
  DB::UserDBFilter filter("*");
  if (uids.size() <= kFewMembers) {
    filter.SetUIDs(uids);
  }
  return DB::User().List(filter, mirrored);
}

// Users who are mirrored as members of a group are not new to the next refresh. It has to be told
// that the domains which add accounts automatically did not get them yet.
bool RememberNewcomers(const std::vector<RECORD::User>& mirrored_before,
                       std::unordered_set<unsigned int> uids) {
  for (const RECORD::User& user : mirrored_before) {
    uids.erase(user.GetUID());
  }
  if (uids.empty()) {
    return true;
  }
  std::vector<int> domain_idxs;
  DB::IdsByDomain uids_by_domain;
  bool is_remembered = DB::Domain().GetAutoAddingUserDomainIds(domain_idxs);
  for (const int domain_idx : domain_idxs) {
    uids_by_domain[domain_idx] = {uids.begin(), uids.end()};
  }
  is_remembered = is_remembered && DB::Joining().Add(uids_by_domain, {});
  if (!is_remembered) {
    LOG_ERROR("Failed to remember the users that are still to be added to domains");
  }
  return is_remembered;
}

}  // namespace

bool Group::List(const DB::GroupDBFilter& filter, std::vector<RECORD::Group>& groups) {
  return store_.List(filter, groups);
}

bool Group::Create(const std::vector<RECORD::Group>& groups) {
  if (!store_.Create(groups)) {
    LOG_ERROR("Failed to create groups");
    return false;
  }
  if (!_CreateUsersBelongToGroups(groups)) {
    LOG_ERROR("Failed to _CreateUsersBelongToGroups");
    return false;
  }
  return true;
}

bool Group::Set(const std::vector<RECORD::Group>& groups) {
  if (!store_.Set(groups)) {
    LOG_ERROR("Failed to set groups");
    return false;
  }
  if (!_UpdateUsersBelongToGroups(groups)) {
    LOG_ERROR("Failed to _UpdateUsersBelongToGroups");
    return false;
  }
  return true;
}

bool Group::Delete(const std::vector<unsigned int>& gids) {
  return store_.Delete(gids);
}

bool Group::ListGroupToUsers(const unsigned int& gid, std::vector<unsigned int>& uids) {
  return store_.ListGroupToUsers(gid, uids);
}

bool Group::_HandleUsersBelongToGroupsImp(const std::vector<RECORD::Group>& groups,
                                          const bool& is_update) {
  if (groups.empty()) {
    return true;
  }
  // Without it a directory is read whole again for every group.
  const korvmailserver::AccountSnapshot snapshot;
  UsersByLowerName users_by_lower_name;
  if (!_GetUsersByLowerName(groups, users_by_lower_name)) {
    return false;
  }
  std::vector<GroupMembers> members_by_group;
  members_by_group.reserve(groups.size());
  for (const RECORD::Group& group : groups) {
    std::vector<RECORD::User> members;
    if (!_GetUsersFromGroup(group, users_by_lower_name, members)) {
      LOG_ERROR("Failed to _GetUsersFromGroup [%s], skip", group.GetGroupName().c_str());
      continue;
    }
    members_by_group.emplace_back(&group, std::move(members));
  }

  UidsByGid stored;
  const unsigned int first_gid = groups.front().GetGID();
  const bool is_stored_known = groups.size() == 1
                                   ? store_.ListGroupToUsers(first_gid, stored[first_gid])
                                   : store_.ListAllGroupToUsers(stored);
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  std::vector<RECORD::User> mirrored_before;
  std::unordered_set<unsigned int> mirrored_uids;
  bool is_mirror_read = false;
  bool all_written = true;
  for (const auto& [group, members] : members_by_group) {
    if (is_update && !is_stored_known) {
      LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", group->GetGID());
    } else if (is_update) {
      const std::vector<unsigned int>& old_uids = stored[group->GetGID()];
      LogChangedCount(group->GetGID(), old_uids.size(), members.size());
      if (AreTheMembers(old_uids, members)) {
        continue;
      }
    } else if (is_stored_known && AreTheMembers(stored[group->GetGID()], members)) {
      continue;  // mirrored just before, for another domain
    }
    // Read before the first write, and only when there is one.
    if (!is_mirror_read && !ListMirrored(members_by_group, mirrored_before)) {
      LOG_ERROR("Failed to list users");
      return false;
    }
    is_mirror_read = true;
    all_written = _WriteMembers(*group, members, is_update, mirrored_uids);
    if (!all_written) {
      break;
    }
  }
  if (!RememberNewcomers(mirrored_before, std::move(mirrored_uids)) || !all_written) {
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to SetGroupToUsers [%s]", groups.back().GetGroupName().c_str());
    return false;
  }
  return true;
}

bool Group::_GetUsersByLowerName(const std::vector<RECORD::Group>& groups,
                                 UsersByLowerName& users_by_lower_name) {
  std::vector<std::string> names;
  names.reserve(groups.size());
  for (const RECORD::Group& group : groups) {
    names.push_back(group.GetGroupName());
  }
  std::vector<RECORD::User> users;
  bool is_all_success = false;
  if (!UTILS::TryToGetZelmUsersOf(names, users, is_all_success)) {
    LOG_ERROR("Failed to TryToGetAllZelmUsers");
    return false;
  }
  if (!is_all_success) {
    LOG_NOTICE("!is_all_success, only get [%zu] zelm_users", users.size());
  }
  users_by_lower_name.reserve(users.size());
  for (RECORD::User& user : users) {
    std::string lower_name = FoldAccountName(user.GetUserName());
    users_by_lower_name.emplace(std::move(lower_name), std::move(user));
  }
  return true;
}

bool Group::_GetUsersFromGroup(const RECORD::Group& group,
                               const UsersByLowerName& users_by_lower_name,
                               std::vector<RECORD::User>& members) {
  members.clear();
  const std::string group_name = group.GetGroupName();
  PKLIBCSzList list = KLIBCSzListAlloc(kMemberListCapacity);
  if (list == nullptr) {
    LOG_ERROR("Out of memory");
    return false;
  }
  const postara::ScopeGuard free_list([list] { KLIBCSzListFree(list); });
  if (KORVGroupListMember(group_name.c_str(), list) != 0) {
    LOG_ERROR("Failed to KORVGroupListMember %s", group_name.c_str());
    return false;
  }
  std::vector<std::string> missing;
  const int count = KLIBCSzListCount(list);
  for (int i = 0; i < count; ++i) {
    const std::string name = KLIBCSzListGet(list, i);
    const auto found = users_by_lower_name.find(FoldAccountName(name));
    if (found != users_by_lower_name.end()) {
      members.push_back(found->second);
    } else {
      missing.push_back(name);
    }
  }
  if (!missing.empty()) {
    LOG_NOTICE("Failed to find member [%s] of group [%s]", BASE::Join(missing, ", ").c_str(),
               group_name.c_str());
  }
  if (members.empty() && count > 0) {
    LOG_ERROR("group [%s] should has [%d] members, but get [%zu]", group_name.c_str(), count,
              members.size());
    return false;
  }
  return true;
}

bool Group::_WriteMembers(const RECORD::Group& group, const std::vector<RECORD::User>& members,
                          const bool& is_update, std::unordered_set<unsigned int>& mirrored_uids) {
  std::vector<RECORD::User> not_mirrored_yet;
  std::vector<std::pair<unsigned int, unsigned int>> gid_uid_pairs;
  gid_uid_pairs.reserve(members.size());
  for (const RECORD::User& member : members) {
    gid_uid_pairs.emplace_back(group.GetGID(), member.GetUID());
    if (mirrored_uids.insert(member.GetUID()).second) {
      not_mirrored_yet.push_back(member);
    }
  }
  if (!DB::User().Create(not_mirrored_yet)) {
    LOG_ERROR("Failed to create users");
    return false;
  }
  if (is_update && !store_.DeleteGroupToUsers({group.GetGID()})) {
    LOG_ERROR("Failed to DeleteGroupToUsers, gid: [%u]", group.GetGID());
    return false;
  }
  if (!store_.SetGroupToUsers(gid_uid_pairs)) {
    LOG_ERROR("Failed to SetGroupToUsers [%s]", group.GetGroupName().c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL
