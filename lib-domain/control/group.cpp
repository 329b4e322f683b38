// Mirroring groups and rebuilding who belongs to them.
#include "lib-domain/control/group.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/joining.h"
#include "lib-domain/db/mirror_batch.h"
#include "lib-domain/db/user.h"
#include "platform/include/account.h"
#include "platform/include/batch_scope.h"
#include "platform/include/hash_index.h"
#include "platform/include/scope_guard.h"
#include "platform/include/string_list.h"

namespace MDOMAIN::CONTROL {

namespace {

using DB::INTERNAL::Memberships;
using korvmailserver::HashIndex;
using Uids = std::vector<unsigned int>;

constexpr int kMemberListCapacity = 1024;
// Of more the whole mirror is read.
constexpr size_t kFewMembers = 20000;
constexpr size_t kFewGroups = 16;

void LogChangedCount(unsigned int gid, size_t old_count, size_t new_count) {
  if (old_count != new_count) {
    LOG_NOTICE("group [%u]'s member count has changed from [%zu] to [%zu]", gid, old_count,
               new_count);
  }
}

void SortOnce(std::vector<unsigned int>& uids) {
  if (!std::is_sorted(uids.begin(), uids.end())) {
    std::sort(uids.begin(), uids.end());
  }
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
}

// Ascending, each once.
Uids UidsOf(const std::vector<const RECORD::User*>& members) {
  Uids uids;
  uids.reserve(members.size());
  for (const RECORD::User* member : members) {
    uids.push_back(member->GetUID());
  }
  SortOnce(uids);
  return uids;
}

// Order and repeats do not matter: the membership table has neither.
bool AreTheMembers(Uids uids, const std::vector<const RECORD::User*>& members) {
  SortOnce(uids);
  return uids == UidsOf(members);
}

// Whether somebody is to become a member, and only of groups that have no members in the mirror.
template <typename Groups, typename UidsByGid>
bool AreFirstMembers(const Groups& groups, const UidsByGid& stored) {
  return std::any_of(groups.begin(), groups.end(),
                     [](const auto& group) { return !group.second.empty(); }) &&
         std::none_of(groups.begin(), groups.end(), [&stored](const auto& group) {
           const auto members = stored.find(group.first->GetGID());
           return members != stored.end() && !members->second.empty();
         });
}

// Those of the members, and maybe others, who are mirrored.
template <typename MembersByGroup>
bool ListMirrored(const MembersByGroup& members_by_group, std::vector<RECORD::User>& mirrored) {
  std::vector<unsigned int> uids = {0};  // without any the filter would let everybody through
  for (const auto& [group, members] : members_by_group) {
    for (const RECORD::User* member : members) {
      uids.push_back(member->GetUID());
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

// Ascending.
Uids MembersOf(const Memberships& stored, unsigned int gid) {
  Uids uids;
  for (auto member = std::lower_bound(stored.begin(), stored.end(), std::make_pair(gid, 0U));
       member != stored.end() && member->first == gid; ++member) {
    uids.push_back(member->second);
  }
  return uids;
}

// The rows of a group that go and those that come, where it is to have these members. Both lists
// ascend.
DB::INTERNAL::MemberDifference DifferenceOf(unsigned int gid, const Uids& stored,
                                            const Uids& members, bool is_update) {
  DB::INTERNAL::MemberDifference difference;
  difference.gid = gid;
  if (is_update) {
    std::set_difference(stored.begin(), stored.end(), members.begin(), members.end(),
                        std::back_inserter(difference.left));
  }
  Uids joined;
  std::set_difference(members.begin(), members.end(), stored.begin(), stored.end(),
                      std::back_inserter(joined));
  for (const unsigned int uid : joined) {
    difference.joined.emplace_back(gid, uid);
  }
  return difference;
}

// What may differ from the mirror.
struct Differing {
  std::vector<RECORD::Group> groups;
  // Of each of the groups; none where KORVGroupListMember has to tell.
  std::vector<std::optional<Uids>> members;
};

Differing MayDiffer(const std::vector<RECORD::Group>& groups, const Memberships& stored) {
  std::vector<std::string> names;
  names.reserve(groups.size());
  for (const RECORD::Group& group : groups) {
    names.push_back(group.GetGroupName());
  }
  std::vector<bool> are_the_same(groups.size());
  std::map<size_t, Uids> told;
  auto first = stored.cbegin();  // groups mostly stand in the order of their gids
  const auto compare = [&](size_t number, const Uids& uids) {
    const unsigned int gid = groups[number].GetGID();
    if (first == stored.cend() || first->first != gid) {
      first = std::lower_bound(stored.cbegin(), stored.cend(), std::make_pair(gid, 0U));
    }
    auto uid = uids.begin();
    bool is_same = true;
    for (; first != stored.cend() && first->first == gid; ++first) {
      is_same = is_same && uid != uids.end() && *uid++ == first->second;
    }
    are_the_same[number] = is_same && uid == uids.end();
    if (!are_the_same[number]) {
      told[number] = uids;
    }
  };
  if (!korvmailserver::ForEachPlainGroup(names, compare)) {
    return {groups, std::vector<std::optional<Uids>>(groups.size())};
  }
  Differing differing;
  for (size_t i = 0; i < groups.size(); ++i) {
    if (!are_the_same[i]) {
      differing.groups.push_back(groups[i]);
      const auto members = told.find(i);
      differing.members.push_back(members == told.end() ? std::nullopt
                                                        : std::make_optional(members->second));
    }
  }
  return differing;
}

// Groups of which all members are told and mirrored. False, with nothing written or said, where
// that is not so, or when it cannot be written.
bool WriteTold(const Differing& differing, const Memberships& stored, bool is_update) {
  std::vector<DB::INTERNAL::MemberDifference> differences;
  differences.reserve(differing.groups.size());
  for (size_t i = 0; i < differing.groups.size(); ++i) {
    if (!differing.members[i]) {
      return false;
    }
    const unsigned int gid = differing.groups[i].GetGID();
    differences.push_back(
        DifferenceOf(gid, MembersOf(stored, gid), *differing.members[i], is_update));
  }
  if (!DB::INTERNAL::TryWriteMembers(differences)) {
    return false;
  }
  for (size_t i = 0; is_update && i < differing.groups.size(); ++i) {
    const unsigned int gid = differing.groups[i].GetGID();
    LogChangedCount(gid, MembersOf(stored, gid).size(), differing.members[i]->size());
  }
  return true;
}

}  // namespace

// The users of the account system, found by their names without letter case; of several the first.
// A map of names would take ten times as much memory and time.
class Group::UsersByLowerName {
 private:
  auto _Named(const std::string& folded) const {
    return [this, &folded](uint32_t number) {
      return FoldAccountName(users_[number].GetUserName()) == folded;
    };
  }

 public:
  void Set(std::vector<RECORD::User> users) {
    users_ = std::move(users);
    index_.Reserve(users_.size());
    for (size_t i = 0; i < users_.size(); ++i) {
      const std::string name = FoldAccountName(users_[i].GetUserName());
      index_.FindOrAdd(HashIndex::HashOf(name), static_cast<uint32_t>(i), _Named(name));
    }
  }
  // Null for nobody.
  const RECORD::User* Find(const std::string& name) const {
    const std::string folded = FoldAccountName(name);
    const uint32_t number = index_.Find(HashIndex::HashOf(folded), _Named(folded));
    return number == HashIndex::kNone ? nullptr : &users_[number];
  }

 private:
  std::vector<RECORD::User> users_;
  HashIndex index_;
};

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

// Only where nobody else writes from the first read on are the rows that differ enough to write.
// The account system is asked before that.
bool Group::Set(const std::vector<RECORD::Group>& groups) {
  if (groups.empty()) {
    return store_.Set(groups);
  }
  // Without it a directory is read whole again for every group.
  const korvmailserver::AccountSnapshot snapshot;
  korvmailserver::ForEachPlainGroup({}, [](size_t /*number*/, const Uids& /*uids*/) {});
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  if (!store_.Set(groups)) {
    LOG_ERROR("Failed to set groups");
    return false;
  }
  if (!_UpdateUsersBelongToGroups(groups)) {
    LOG_ERROR("Failed to _UpdateUsersBelongToGroups");
    return false;
  }
  if (scope.Commit() != 0) {
    LOG_ERROR("Failed to set groups");
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

bool Group::_UpdateUsersBelongToGroups(const std::vector<RECORD::Group>& groups) {
  Memberships stored;
  if (!DB::INTERNAL::TryListMemberships(stored)) {
    return _HandleUsersBelongToGroupsImp(groups, true);
  }
  const Differing differing = MayDiffer(groups, stored);
  if (!DB::INTERNAL::IsWriting()) {
    return _HandleUsersBelongToGroupsImp(differing.groups, true);
  }
  return WriteTold(differing, stored, true) ||
         _HandleUsersBelongToGroupsImp(differing.groups, true, &stored);
}

// Of a few groups the members are looked up, which does not read all accounts. The rows of others
// are not read before the account system has answered.
bool Group::_CreateUsersBelongToGroups(const std::vector<RECORD::Group>& groups) {
  if (groups.size() <= kFewGroups || !DB::INTERNAL::IsWriting()) {
    return _HandleUsersBelongToGroupsImp(groups, false);
  }
  const korvmailserver::AccountSnapshot snapshot;
  Memberships stored;
  return (DB::INTERNAL::TryListMemberships(stored) &&
          WriteTold(MayDiffer(groups, stored), stored, false)) ||
         _HandleUsersBelongToGroupsImp(groups, false);
}

bool Group::_HandleUsersBelongToGroupsImp(const std::vector<RECORD::Group>& groups,
                                          const bool& is_update, const Memberships* locked) {
  if (groups.empty()) {
    return true;
  }
  const korvmailserver::AccountSnapshot snapshot;
  UsersByLowerName users_by_lower_name;
  if (!_GetUsersByLowerName(groups, users_by_lower_name)) {
    return false;
  }
  std::vector<GroupMembers> members_by_group;
  members_by_group.reserve(groups.size());
  BASE::Progress progress("reading the members of groups", groups.size());
  for (const RECORD::Group& group : groups) {
    progress.Step();
    std::vector<const RECORD::User*> members;
    if (!_GetUsersFromGroup(group, users_by_lower_name, members)) {
      LOG_ERROR("Failed to _GetUsersFromGroup [%s], skip", group.GetGroupName().c_str());
      continue;
    }
    members_by_group.emplace_back(&group, std::move(members));
  }

  UidsByGid stored;
  const std::unordered_set<unsigned int> unread_gids = _ReadStored(groups, stored);
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  std::vector<RECORD::User> mirrored_before;
  std::unordered_set<unsigned int> mirrored_uids;
  bool is_mirror_read = false;
  bool all_written = true;
  if (!is_update && unread_gids.empty() && AreFirstMembers(members_by_group, stored)) {
    if (!ListMirrored(members_by_group, mirrored_before)) {
      LOG_ERROR("Failed to list users");
      return false;
    }
    is_mirror_read = true;
    if (_WriteFirstMembers(members_by_group, mirrored_uids)) {
      members_by_group.clear();
    }
  }
  for (const auto& [group, members] : members_by_group) {
    const bool is_stored_known = unread_gids.count(group->GetGID()) == 0;
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
    all_written = _WriteMembers(*group, members, is_update, locked, mirrored_uids);
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

// One by one where one of all cannot be read, so that the others are not lost.
std::unordered_set<unsigned int> Group::_ReadStored(const std::vector<RECORD::Group>& groups,
                                                    UidsByGid& stored) {
  std::unordered_set<unsigned int> unread_gids;
  if (groups.size() > 1 && store_.ListAllGroupToUsers(stored)) {
    return unread_gids;
  }
  stored.clear();
  for (const RECORD::Group& group : groups) {
    const auto [members, is_new] = stored.try_emplace(group.GetGID());
    if (is_new && !store_.ListGroupToUsers(group.GetGID(), members->second)) {
      unread_gids.insert(group.GetGID());
    }
  }
  return unread_gids;
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
  users_by_lower_name.Set(std::move(users));
  return true;
}

bool Group::_GetUsersFromGroup(const RECORD::Group& group,
                               const UsersByLowerName& users_by_lower_name,
                               std::vector<const RECORD::User*>& members) {
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
    const RECORD::User* const user = users_by_lower_name.Find(name);
    if (user != nullptr) {
      members.push_back(user);
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

bool Group::_WriteFirstMembers(const std::vector<GroupMembers>& groups,
                               std::unordered_set<unsigned int>& mirrored_uids) {
  std::vector<RECORD::User> users;
  std::vector<std::pair<unsigned int, unsigned int>> gid_uid_pairs;
  std::unordered_set<unsigned int> uids;
  for (const auto& [group, members] : groups) {
    for (const RECORD::User* member : members) {
      gid_uid_pairs.emplace_back(group->GetGID(), member->GetUID());
      if (uids.insert(member->GetUID()).second) {
        users.push_back(*member);
      }
    }
  }
  const bool are_written = DB::INTERNAL::CreateMembers(users, gid_uid_pairs);
  if (are_written) {
    mirrored_uids = std::move(uids);
  }
  return are_written;
}

bool Group::_WriteMembers(const RECORD::Group& group,
                          const std::vector<const RECORD::User*>& members, const bool& is_update,
                          const Memberships* locked,
                          std::unordered_set<unsigned int>& mirrored_uids) {
  const unsigned int gid = group.GetGID();
  std::vector<RECORD::User> not_mirrored_yet;
  DB::INTERNAL::MemberDifference difference;
  difference.gid = gid;
  for (const RECORD::User* member : members) {
    difference.joined.emplace_back(gid, member->GetUID());
    if (mirrored_uids.insert(member->GetUID()).second) {
      not_mirrored_yet.push_back(*member);
    }
  }
  const bool is_difference = is_update && locked != nullptr;
  if (is_difference) {
    difference = DifferenceOf(gid, MembersOf(*locked, gid), UidsOf(members), is_update);
  }
  if (!DB::User().Create(not_mirrored_yet)) {
    LOG_ERROR("Failed to create users");
    return false;
  }
  if (is_update && !(is_difference ? DB::INTERNAL::DeleteMembers(difference)
                                   : store_.DeleteGroupToUsers({gid}))) {
    LOG_ERROR("Failed to DeleteGroupToUsers, gid: [%u]", gid);
    return false;
  }
  if (!store_.SetGroupToUsers(difference.joined)) {
    LOG_ERROR("Failed to SetGroupToUsers [%s]", group.GetGroupName().c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL
