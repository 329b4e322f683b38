// Groups of domains and their members.
#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/pages.h"
#include "lib-domain/session/user_choice.h"

namespace mdomain {

using MDOMAIN::API::DomainGroup;
using session::Change;
using session::Fail;
using session::Known;
using session::Refuse;
using session::RequireGroups;

namespace {

// The interface below takes anybody in again.
void RequireMembers(DomainGroup& api, const Known& domain, std::uint32_t gid,
                    const std::vector<std::uint32_t>& uids) {
  std::vector<std::tuple<unsigned int, std::string, std::string>> members;
  if (!uids.empty() && !api.GetMemberStatus(domain.idx, gid, members)) {
    Fail("the members of the group could not be read");
  }
  for (const std::uint32_t uid : uids) {
    if (std::none_of(members.begin(), members.end(),
                     [uid](const auto& member) { return std::get<0>(member) == uid; })) {
      Refuse(Reason::kNotFound, "no member of the group has the uid " + std::to_string(uid));
    }
  }
}

// The store gives them in an order of its own.
void Sort(const GroupQuery& query, std::vector<Group>& groups) {
  const auto key = [&query](const Group& group) {
    return query.by == GroupColumn::kDescription
               ? std::tuple(group.description, group.name, group.gid)
               : std::tuple(group.name, group.description, group.gid);
  };
  std::sort(groups.begin(), groups.end(), [&](const Group& a, const Group& b) {
    return query.is_descending ? key(b) < key(a) : key(a) < key(b);
  });
}

std::string CommandOf(const char* verb, const std::vector<std::uint32_t>& gids, int domain) {
  std::string command = verb;
  for (const std::uint32_t gid : gids) {
    command += " " + std::to_string(gid);
  }
  return command + " in domain " + std::to_string(domain);
}

}  // namespace

Result<Page<Group>> Session::ListGroups(int domain, const GroupQuery& query,
                                        const std::string& cursor) const {
  return session::ReadModel<Page<Group>>(*this, [&] {
    session::KnownDomain(*this, domain);
    const session::PlaceInList place(query.page_size, cursor);
    MDOMAIN::DB::DomainDBFilter filter("domain_group_view");
    filter.SetLiteralQuery(query.text);
    filter.SetDomainIdxs({domain});
    filter.SetLimit(-1);
    std::vector<MDOMAIN::RECORD::DomainGroup> records;
    if (!DomainGroup().List(filter, records)) {
      Fail("the groups of the domain could not be read");
    }
    std::vector<Group> groups;
    groups.reserve(records.size());
    for (const auto& record : records) {
      groups.push_back({record.GetGID(), record.GetGroupName(), record.GetGroupDesc(),
                        session::RoleOf(record.GetRole())});
    }
    Sort(query, groups);
    Page<Group> page;
    const auto first = std::min(groups.size(), static_cast<std::size_t>(place.offset()));
    const auto end = std::min(groups.size(), first + static_cast<std::size_t>(place.limit()));
    page.items.assign(groups.begin() + static_cast<long>(first),
                      groups.begin() + static_cast<long>(end));
    place.End(groups.size(), page);
    return page;
  });
}

Range<Group> Session::Groups(int domain, const GroupQuery& query) const {
  return Range<Group>([session = *this, domain, query](const std::string& cursor) {
    return session.ListGroups(domain, query, cursor);
  });
}

Result<std::vector<Member>> Session::GroupMembers(int domain, std::uint32_t gid) const {
  return session::ReadModel<std::vector<Member>>(*this, [&] {
    RequireGroups(session::KnownDomain(*this, domain), {gid});
    std::vector<std::tuple<unsigned int, std::string, std::string>> records;
    std::unordered_set<unsigned int> removed;
    if (!DomainGroup().GetMemberStatus(domain, gid, records) ||
        !MDOMAIN::API::DomainUser().GetAllRemovedUIDs(domain, removed)) {
      Fail("the members of the group could not be read");
    }
    std::vector<Member> members;
    members.reserve(records.size());
    for (const auto& [uid, name, status] : records) {
      members.push_back({uid, name,
                         status != "removed"       ? Member::Status::kHasAddress
                         : removed.count(uid) != 0 ? Member::Status::kRemoved
                                                   : Member::Status::kNoAddress});
    }
    return members;
  });
}

Result<Nothing> Session::SetGroupRole(int domain, const std::vector<std::uint32_t>& gids,
                                      Role role) {
  return Change<Nothing>(*this, CommandOf("set groups", gids, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    RequireGroups(known, gids);
    session::Refusals refusals;
    if (role == Role::kNone) {
      refusals.Add("role", "", "is no role of a group");
    }
    refusals.End(Reason::kInvalid, "the groups stay as they are");
    if (role == Role::kDomainAdmin) {
      session::RequireHost(*this, "make a whole group administrators");
    }
    std::vector<MDOMAIN::RECORD::DomainGroupRole> roles;
    roles.reserve(gids.size());
    for (const std::uint32_t gid : gids) {
      roles.emplace_back(domain, gid, session::TextOf(role));
    }
    if (!roles.empty() && !DomainGroup().Set(roles)) {
      Fail("changing groups of domain " + known.Title() + " failed");
    }
    return Nothing();
  });
}

Result<Nothing> Session::RemoveGroups(int domain, const std::vector<std::uint32_t>& gids) {
  return Change<Nothing>(*this, CommandOf("remove groups", gids, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    RequireGroups(known, gids);
    if (!gids.empty() && !DomainGroup().Delete(domain, {gids.begin(), gids.end()})) {
      Fail("removing groups of domain " + known.Title() + " failed");
    }
    return Nothing();
  });
}

Result<Nothing> Session::RestoreMembers(int domain, std::uint32_t gid,
                                        const std::vector<std::uint32_t>& uids) {
  return Change<Nothing>(*this, CommandOf("restore members of groups", {gid}, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    RequireGroups(known, {gid});
    DomainGroup api;
    RequireMembers(api, known, gid, uids);
    const bool is_restored = uids.empty()
                                 ? api.RestoreMemberStatus(domain, std::vector<unsigned int>{gid})
                                 : api.RestoreMemberStatus(domain, gid, {uids.begin(), uids.end()});
    if (!is_restored) {
      Fail("restoring members in domain " + known.Title() + " failed");
    }
    return Nothing();
  });
}

}  // namespace mdomain
