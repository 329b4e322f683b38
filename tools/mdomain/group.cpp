// mdomain group: the groups of domains and their members.
#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/members.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::API::DomainGroup;
using MDOMAIN::RECORD::Group;

// The named groups, all of which must be groups of the domain.
std::vector<Group> GroupsOf(const KnownDomain& domain, const std::vector<std::string>& texts) {
  std::vector<Group> groups = FindGroups(texts);
  DomainGroup api;
  if (std::all_of(groups.begin(), groups.end(),
                  [&](const Group& group) { return api.IsExists(domain.idx, group.GetGID()); })) {
    return groups;
  }
  std::vector<unsigned int> gids;  // whether it cannot be read, or which one is none
  if (!api.List(domain.idx, gids)) {
    throw Failure(kFailed, "the groups of the domain could not be read");
  }
  for (const Group& group : groups) {
    if (std::find(gids.begin(), gids.end(), group.GetGID()) == gids.end()) {
      throw Failure(kNotFound,
                    "\"" + group.GetGroupName() + "\" is no group of domain " + domain.Title());
    }
  }
  return groups;
}

void List(Call& call) {
  const int idx = TypedDomain(call).idx;
  auto filter = ListingFilter(call, MDOMAIN::DB::DomainDBFilter("domain_group_view"));
  filter.SetDomainIdxs({idx});
  std::vector<MDOMAIN::RECORD::DomainGroup> groups;
  if (!DomainGroup().List(filter, groups)) {
    throw Failure(kFailed, "the groups of the domain could not be read");
  }
  Listing listing(
      call.out(),
      {{"gid", "GID"}, {"name", "NAME"}, {"role", "ROLE"}, {"description", "DESCRIPTION"}});
  for (const auto& group : groups) {
    Json::Value record = DescribedGroupJson(group);
    record["role"] = group.GetRole();
    listing.Add(record);
  }
  listing.End();
}

void ListMembers(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const Group group = GroupsOf(domain, {call.Text("GROUP")}).front();
  std::vector<unsigned int> uids;
  if (!DomainGroup().ListMembers(domain.idx, group.GetGID(), uids)) {
    throw Failure(kFailed, "the members could not be read");
  }
  ListMirroredUsers(call.out(), uids);
}

void ShowStatus(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const Group group = GroupsOf(domain, {call.Text("GROUP")}).front();
  std::vector<std::tuple<unsigned int, std::string, std::string>> members;
  if (!DomainGroup().GetMemberStatus(domain.idx, group.GetGID(), members)) {
    throw Failure(kFailed, "the members' status could not be read");
  }
  // The library calls everybody "removed" who has no alias; many were never removed.
  std::unordered_set<unsigned int> removed;
  if (!MDOMAIN::API::DomainUser().GetAllRemovedUIDs(domain.idx, removed)) {
    throw Failure(kFailed, "the removed members could not be read");
  }
  Listing listing(call.out(), {{"uid", "UID"}, {"name", "NAME"}, {"status", "STATUS"}});
  for (const auto& [uid, name, status] : members) {
    Json::Value record = AccountJson(uid, name);
    record["status"] = status == "removed" && removed.count(uid) == 0 ? "no alias" : status;
    listing.Add(record);
  }
  listing.End();
}

void Add(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  AddMembers(call, domain, {{}, FindGroups(call.List("GROUP"))}, {});
}

std::string Names(const std::vector<Group>& groups) {
  std::string names;
  for (const Group& group : groups) {
    names += (names.empty() ? "" : ", ") + group.GetGroupName();
  }
  return names;
}

void Set(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::vector<Group> groups = GroupsOf(domain, call.List("GROUP"));
  const std::string role = call.Text("--role");
  if (!call.Has("--role")) {
    throw Failure(kUsage, "nothing to set: give --role");
  }
  RequireRole(role);
  std::vector<MDOMAIN::RECORD::DomainGroupRole> roles;
  roles.reserve(groups.size());
  for (const Group& group : groups) {
    roles.emplace_back(domain.idx, group.GetGID(), role);
  }
  DomainGroup api;
  if (!api.Set(roles)) {
    throw ApiFailure(api.GetErrorCode(), "changing " + Names(groups));
  }
  Json::Value done;
  done["groups"] = AccountsJson(groups);
  done["role"] = role;
  call.out().Done(done, Names(groups) + ": role " + role + " in domain " + domain.Title());
}

void Remove(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::vector<Group> groups = GroupsOf(domain, call.List("GROUP"));
  call.Confirm("Take " + Names(groups) + " out of domain " + domain.Title() +
               " with the addresses of the users whom no other group keeps there?");
  DomainGroup api;
  if (!api.Delete(domain.idx, Ids(groups))) {
    throw ApiFailure(api.GetErrorCode(), "removing " + Names(groups));
  }
  Json::Value done;
  done["removed"] = AccountsJson(groups);
  call.out().Done(done, Names(groups) + " taken out of domain " + domain.Title());
}

void Restore(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::vector<Group> groups = GroupsOf(domain, call.List("GROUP"));
  const std::vector<MDOMAIN::RECORD::User> users = FindUsers(call.List("--user"));
  if (!users.empty() && groups.size() != 1) {
    throw Failure(kUsage, "--user needs exactly one group");
  }
  DomainGroup api;
  const bool restored =
      users.empty() ? api.RestoreMemberStatus(domain.idx, Ids(groups))
                    : api.RestoreMemberStatus(domain.idx, groups.front().GetGID(), Ids(users));
  if (!restored) {
    throw ApiFailure(api.GetErrorCode(), "restoring members of " + Names(groups));
  }
  Json::Value done;
  done["groups"] = AccountsJson(groups);
  done["users"] = AccountsJson(users);
  call.out().Done(done, "members of " + Names(groups) + " restored in domain " + domain.Title());
}

const Argument kGroup = One("GROUP", "Name or gid of the group");
const Argument kGroups = Many("GROUP", "Name or gid of a group");

const Register kGroupNoun({
    "group",
    "Groups of domains and their members",
    {
        {"list", "List a domain's groups with their role", "", Effect::kReads,
         Joined({DomainArgument()}, ListingArguments("groups", "name or description")), List},
        {"members",
         "List the members of a group who are users of the domain",
         "",
         Effect::kReads,
         {DomainArgument(), kGroup},
         ListMembers},
        {"status",
         "Show which members of a group were removed from the domain",
         "A member who was not removed and has no address in the domain has the status \"no "
         "alias\".",
         Effect::kReads,
         {DomainArgument(), kGroup},
         ShowStatus},
        {"add",
         "Add groups with their members to a domain",
         "The same as user add with --group. A group that is already in the domain gets the role "
         "normal again.",
         Effect::kChanges,
         {DomainArgument(), kGroups},
         Add},
        {"set",
         "Change the role that groups give their members",
         "",
         Effect::kChanges,
         {DomainArgument(), kGroups, Option("--role", "ROLE", "normal or domain_admin")},
         Set},
        {"remove",
         "Take groups out of a domain",
         "Members who are in no other group of the domain lose their addresses there, also those "
         "who were added by name.",
         Effect::kDestroys,
         {DomainArgument(), kGroups},
         Remove},
        {"restore",
         "Take removed members of groups in again",
         "Without --user all of them. Members are restored for every group of the domain that "
         "they are in.",
         Effect::kChanges,
         {DomainArgument(), kGroups,
          Repeated("--user", "USER", "Only this member, by name or uid")},
         Restore},
    },
});

}  // namespace
}  // namespace mdomain
