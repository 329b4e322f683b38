// Adding groups to domains and telling and restoring their members' status. Deletion lies in
// domain_group_delete.cpp.
#include "lib-domain/control/domain_group.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain_group_internal.h"
#include "lib-domain/control/group.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/user.h"
#include "platform/include/account.h"
#include "platform/include/scope_guard.h"

namespace MDOMAIN::CONTROL {

namespace {

using MemberStatus = std::tuple<unsigned int, std::string, std::string>;

constexpr const char* kStatusNormal = "normal";
constexpr const char* kStatusRemoved = "removed";

// Appends the mirrored members of all groups, group by group. Where somebody else's row cannot be
// read they are read one by one.
bool ListMembersOfGroups(const std::vector<unsigned int>& gids, std::vector<unsigned int>& uids) {
  std::map<unsigned int, std::vector<unsigned int>> uids_by_gid;
  if (gids.size() == 1 || !DB::Group().ListAllGroupToUsers(uids_by_gid)) {
    for (const unsigned int gid : gids) {
      if (!DB::Group().ListGroupToUsers(gid, uids)) {
        LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", gid);
        return false;
      }
    }
    return true;
  }
  for (unsigned int gid : gids) {
    const auto found = uids_by_gid.find(gid);
    if (found != uids_by_gid.end()) {
      uids.insert(uids.end(), found->second.begin(), found->second.end());
    }
  }
  return true;
}

}  // namespace

bool DomainGroup::Create(const int& domain_idx, const std::vector<std::string>& group_short_names) {
  std::vector<RECORD::Group> groups;
  if (!INTERNAL::_GetGroupsFromGroupShortNames(group_short_names, groups)) {
    LOG_ERROR("Failed to _GetGroupsFromGroupShortNames");
    return false;
  }
  return _CreateImp(domain_idx, groups);
}

bool DomainGroup::Create(const int& domain_idx, const std::vector<RECORD::Group>& groups) {
  return _CreateImp(domain_idx, groups);
}

bool DomainGroup::_CreateImp(const int& domain_idx, const std::vector<RECORD::Group>& groups) {
  if (!Group().Create(groups)) {
    LOG_ERROR("Failed to create groups");
    return false;
  }
  std::vector<RECORD::DomainGroupRole> roles;
  if (!INTERNAL::_ComposeDomainGroupsRoles(domain_idx, groups, roles)) {
    LOG_ERROR("Failed to _ComposeDomainGroupsRoles");
    return false;
  }
  if (!store_.CreateGroupsRoles(roles)) {
    LOG_ERROR("Failed to CreateGroupsRoles");
    return false;
  }
  return true;
}

bool DomainGroup::Set(const std::vector<RECORD::DomainGroupRole>& roles) {
  return store_.SetGroupsRoles(roles);
}

bool DomainGroup::List(DB::DomainDBFilter& filter, std::vector<RECORD::DomainGroup>& groups) {
  return store_.ListDomainGroups(filter, groups);
}

bool DomainGroup::List(const int& domain_idx, std::vector<unsigned int>& gids) {
  DB::DomainDBFilter filter;
  filter.SetDomainIdxs({domain_idx});
  filter.SetLimit(-1);
  std::vector<RECORD::DomainGroup> groups;
  if (!store_.ListDomainGroups(filter, groups)) {
    LOG_ERROR("Failed to ListDomainGroups, domain_id: [%d]", domain_idx);
    return false;
  }
  for (const RECORD::DomainGroup& group : groups) {
    gids.push_back(group.GetGID());
  }
  return true;
}

bool DomainGroup::GetDomainGroupsCount(DB::DomainDBFilter& filter, int& count) {
  return store_.GetDomainGroupsCount(filter, count);
}

bool DomainGroup::IsExists(const int& domain_idx, const unsigned int& gid) {
  return store_.IsExists(domain_idx, gid);
}

bool DomainGroup::ListMembers(const int& domain_idx, const unsigned int& gid,
                              std::vector<unsigned int>& uids) {
  std::vector<unsigned int> group_uids;
  if (!DB::Group().ListGroupToUsers(gid, group_uids)) {
    LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", gid);
    return false;
  }
  std::vector<unsigned int> domain_uids;
  if (!DB::DomainUser().List(domain_idx, group_uids, domain_uids)) {
    LOG_ERROR("Failed to List member uids, domain_id [%d]", domain_idx);
    return false;
  }
  std::sort(domain_uids.begin(), domain_uids.end());
  std::copy_if(group_uids.begin(), group_uids.end(), std::back_inserter(uids),
               [&domain_uids](unsigned int uid) {
                 return std::binary_search(domain_uids.begin(), domain_uids.end(), uid);
               });
  return true;
}

bool DomainGroup::ListMembers(const int& domain_idx, const unsigned int& gid,
                              std::vector<std::string>& user_names) {
  std::vector<unsigned int> group_uids;
  if (!DB::Group().ListGroupToUsers(gid, group_uids)) {
    LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", gid);
    return false;
  }
  std::vector<RECORD::DomainUser> domain_users;
  if (!DB::DomainUser().List(domain_idx, domain_users)) {
    LOG_ERROR("Failed to ListDomainUsers, domain_id: [%d]", domain_idx);
    return false;
  }
  const std::unordered_set<unsigned int> in_group(group_uids.begin(), group_uids.end());
  for (const RECORD::DomainUser& user : domain_users) {
    if (in_group.count(user.GetUID()) != 0) {
      user_names.push_back(user.GetUserName());
    }
  }
  return true;
}

bool DomainGroup::CheckMemberStatus(const int& domain_idx, const unsigned int& gid,
                                    std::vector<MemberStatus>& members) {
  std::vector<unsigned int> uids;
  if (!DB::Group().ListGroupToUsers(gid, uids)) {
    LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", gid);
    return false;
  }
  if (uids.empty()) {
    return true;
  }
  // Names and status are read once for all members. A failure is logged for the first of them, as
  // if they had been read one by one.
  std::unordered_map<unsigned int, std::string> names;
  if (!DB::User().GetNames(uids, names)) {
    LOG_ERROR("Failed to GetName, uid: [%u]", uids.front());
    return false;
  }
  std::vector<unsigned int> domain_uids;
  if (!store_.ListMembersInDomain(domain_idx, gid, domain_uids)) {
    LOG_ERROR("Failed to _CheckSingleMemberStatus, domain_id: [%d], gid: [%u], uid: [%u]",
              domain_idx, gid, uids.front());
    return false;
  }
  const std::unordered_set<unsigned int> in_domain(domain_uids.begin(), domain_uids.end());
  for (unsigned int uid : uids) {
    members.emplace_back(uid, names[uid],
                         in_domain.count(uid) != 0 ? kStatusNormal : kStatusRemoved);
  }
  std::stable_sort(members.begin(), members.end(), INTERNAL::_CompareMemberTupleByStatus);
  return true;
}

bool DomainGroup::_CheckSingleMemberStatus(const int& domain_idx, const unsigned int& gid,
                                           const unsigned int& uid, int& status) {
  return store_.CheckSingleMemberStatus(domain_idx, gid, uid, status);
}

bool DomainGroup::RestoreMemberStatus(const int& domain_idx, const unsigned int& /*gid*/,
                                      const std::vector<unsigned int>& uids) {
  return DB::DomainUser().DeleteRemovedRecord(domain_idx, uids);
}

bool DomainGroup::RestoreMemberStatus(const int& domain_idx,
                                      const std::vector<unsigned int>& gids) {
  if (gids.empty()) {
    return true;
  }
  std::vector<unsigned int> uids;
  return ListMembersOfGroups(gids, uids) && DB::DomainUser().DeleteRemovedRecord(domain_idx, uids);
}

namespace INTERNAL {

bool _GetGroupsFromGroupShortNames(const std::vector<std::string>& short_names,
                                   std::vector<RECORD::Group>& groups) {
  for (const std::string& short_name : short_names) {
    std::string real_name;
    if (!UTILS::ShortName2RealName(false, short_name, real_name)) {
      LOG_ERROR("Failed to ShortName2RealName [%s]", short_name.c_str());
      return false;
    }
    PKORVGroup group = nullptr;
    if (KORVGroupGet(real_name.c_str(), &group) < 0) {
      LOG_ERROR("Failed to KORVGroupGet [%s]", real_name.c_str());
      return false;
    }
    const postara::ScopeGuard free_group([group] { KORVGroupFree(group); });
    std::string description;
    if (KORVGroupDescGet(real_name.c_str(), description) < 0) {
      LOG_ERROR("Failed to KORVGroupDescGet [%s]", real_name.c_str());
      return false;
    }
    groups.emplace_back(group->gid, real_name, description);
  }
  return true;
}

bool _ComposeDomainGroupsRoles(const int& domain_idx, const std::vector<RECORD::Group>& groups,
                               std::vector<RECORD::DomainGroupRole>& roles) {
  for (const RECORD::Group& group : groups) {
    roles.emplace_back(domain_idx, group.GetGID(), "normal");
  }
  return true;
}

bool _CompareMemberTupleByStatus(const MemberStatus& a, const MemberStatus& b) {
  return std::get<2>(a) > std::get<2>(b);
}

}  // namespace INTERNAL
}  // namespace MDOMAIN::CONTROL
