// Every map is read with one statement. When that fails, the groups or domains are read one by one,
// so that a single one that cannot be read does not lose the others.

#include "lib-domain/sync/membership.h"

#include <algorithm>

#include "lib-domain/base/log_line.h"
#include "lib-domain/control/domain_group.h"
#include "lib-domain/control/group.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/group.h"
#include "lib-domain/sync/mirror_difference.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

Gid2UidsMap ReadMembersOneByOne(CONTROL::Group& control, const std::vector<RECORD::Group>& groups) {
  Gid2UidsMap uids_by_gid;
  for (const RECORD::Group& group : groups) {
    std::vector<unsigned int> uids;
    if (!control.ListGroupToUsers(group.GetGID(), uids)) {
      LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", group.GetGID());
      continue;
    }
    uids_by_gid[group.GetGID()].insert(uids.begin(), uids.end());
  }
  return uids_by_gid;
}

Domain2GidsMap ReadGroupsOneByOne(CONTROL::DomainGroup& control,
                                  const std::vector<int>& domain_idxs) {
  Domain2GidsMap gids_by_domain;
  for (const int domain_idx : domain_idxs) {
    std::vector<unsigned int> gids;
    if (!control.List(domain_idx, gids)) {
      LOG_ERROR("Failed to List gids, domain_id: [%d]", domain_idx);
      continue;
    }
    gids_by_domain[domain_idx] = std::move(gids);
  }
  return gids_by_domain;
}

}  // namespace

Gid2UidsMap GetGid2UidsMap() {
  CONTROL::Group control;
  std::vector<RECORD::Group> groups;
  if (!control.List(DB::GroupDBFilter("*"), groups)) {
    LOG_ERROR("Failed to List Zelm groups");
    return {};
  }
  std::map<unsigned int, std::vector<unsigned int>> members;
  if (!DB::Group().ListAllGroupToUsers(members)) {
    return ReadMembersOneByOne(control, groups);
  }
  Gid2UidsMap uids_by_gid;
  for (const RECORD::Group& group : groups) {
    const std::vector<unsigned int>& uids = members[group.GetGID()];
    uids_by_gid[group.GetGID()].insert(uids.begin(), uids.end());
  }
  return uids_by_gid;
}

Domain2GidsMap GetDomain2GidsMap(const std::vector<int>& domain_idxs) {
  if (domain_idxs.empty()) {
    return {};
  }
  CONTROL::DomainGroup control;
  DB::DomainDBFilter filter("domain_group_view");
  filter.SetDomainIdxs(domain_idxs);
  filter.SetLimit(-1);
  std::vector<RECORD::DomainGroup> groups;
  if (!control.List(filter, groups)) {
    return ReadGroupsOneByOne(control, domain_idxs);
  }
  Domain2GidsMap gids_by_domain;
  for (const int domain_idx : domain_idxs) {
    gids_by_domain[domain_idx];
  }
  for (const RECORD::DomainGroup& group : groups) {
    gids_by_domain[group.GetDomainIdx()].push_back(group.GetGID());
  }
  return gids_by_domain;
}

Domain2GidsMap GetAllDomain2GidsMap() {
  std::vector<RECORD::Domain> domains;
  if (!DB::Domain().ListNames(domains)) {
    LOG_ERROR("Failed to List domains while GetAllDomain2GidsMap");
    return {};
  }
  std::vector<int> domain_idxs;
  domain_idxs.reserve(domains.size());
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
  }
  return GetDomain2GidsMap(domain_idxs);
}

std::unordered_set<unsigned int> GetUidsBelongedToGroups(const std::vector<unsigned int>& gids,
                                                         const Gid2UidsMap& uids_by_gid) {
  std::unordered_set<unsigned int> uids;
  for (const unsigned int gid : gids) {
    const auto members = uids_by_gid.find(gid);
    if (members != uids_by_gid.end()) {
      uids.insert(members->second.begin(), members->second.end());
    }
  }
  return uids;
}

std::unordered_set<unsigned int> GetUidsBelongedToGroups(const std::vector<RECORD::Group>& groups,
                                                         const Gid2UidsMap& uids_by_gid) {
  return GetUidsBelongedToGroups(IdsOf(groups), uids_by_gid);
}

bool IsUserBelongsToGroups(const std::vector<unsigned int>& gids, const Gid2UidsMap& uids_by_gid,
                           unsigned int uid) {
  return std::any_of(gids.begin(), gids.end(), [&](unsigned int gid) {
    const auto members = uids_by_gid.find(gid);
    return members != uids_by_gid.end() && members->second.count(uid) != 0;
  });
}

bool IsBelongingGroupsInDomain(const int& domain_idx, const unsigned int& uid, bool& result) {
  DB::DomainDBFilter filter("domain_group_view");
  filter.SetDomainIdxs({domain_idx});
  filter.SetLimit(-1);
  std::vector<RECORD::DomainGroup> groups;
  if (!CONTROL::DomainGroup().List(filter, groups)) {
    LOG_ERROR("Failed to List domain groups, domain_id: [%d]", domain_idx);
    return false;
  }
  CONTROL::Group control;
  for (const RECORD::DomainGroup& group : groups) {
    std::vector<unsigned int> uids;
    if (!control.ListGroupToUsers(group.GetGID(), uids)) {
      LOG_ERROR("Failed to ListGroupToUsers, gid: [%u]", group.GetGID());
      return false;
    }
    if (std::find(uids.begin(), uids.end(), uid) != uids.end()) {
      result = true;
    }
  }
  return true;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
