// mdomain group: the groups of domains and what becomes of their members.
#include <algorithm>
#include <tuple>

#include "lib-domain/api/domain_group.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/members.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::API::DomainGroup;
using MDOMAIN::RECORD::Group;

const std::vector<Column> kMemberColumns = {{"uid", "UID"}, {"name", "NAME"}};

// The named groups, all of which must be groups of the domain.
std::vector<Group> GroupsOf(const KnownDomain& domain, const std::vector<std::string>& texts) {
  std::vector<Group> groups = FindGroups(texts);
  std::vector<unsigned int> gids;
  if (!DomainGroup().List(domain.idx(), gids)) {
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
  MDOMAIN::DB::DomainDBFilter filter("domain_group_view");
  filter.SetDomainIdxs({Domains().Find(call.Text("DOMAIN")).idx()});
  filter.SetQuery(call.Text("--query"));
  filter.SetOffset(call.Int("--offset", 0));
  filter.SetLimit(call.Int("--limit", -1));
  std::vector<MDOMAIN::RECORD::DomainGroup> groups;
  if (!DomainGroup().List(filter, groups)) {
    throw Failure(kFailed, "the groups of the domain could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const auto& group : groups) {
    Json::Value record;
    record["gid"] = group.GetGID();
    record["name"] = group.GetGroupName();
    record["description"] = group.GetGroupDesc();
    record["role"] = group.GetRole();
    records.append(record);
  }
  call.out().List(
      records,
      {{"gid", "GID"}, {"name", "NAME"}, {"role", "ROLE"}, {"description", "DESCRIPTION"}});
}

void ListMembers(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  const Group group = GroupsOf(domain, {call.Text("GROUP")}).front();
  std::vector<unsigned int> uids;
  if (!DomainGroup().ListMembers(domain.idx(), group.GetGID(), uids)) {
    throw Failure(kFailed, "the members could not be read");
  }
  call.out().List(NamedUsers(uids), kMemberColumns);
}

void ShowStatus(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  const Group group = GroupsOf(domain, {call.Text("GROUP")}).front();
  std::vector<std::tuple<unsigned int, std::string, std::string>> members;
  if (!DomainGroup().GetMemberStatus(domain.idx(), group.GetGID(), members)) {
    throw Failure(kFailed, "the members' status could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const auto& [uid, name, status] : members) {
    Json::Value record;
    record["uid"] = uid;
    record["name"] = name;
    record["status"] = status;
    records.append(record);
  }
  call.out().List(records, {{"uid", "UID"}, {"name", "NAME"}, {"status", "STATUS"}});
}

void Add(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  AddMembers(call, domain, {{}, FindGroups(call.List("GROUP"))}, {});
}

std::string Names(const std::vector<Group>& groups) {
  std::string names;
  for (const Group& group : groups) {
    names += (names.empty() ? "" : ", ") + group.GetGroupName();
  }
  return names;
}

Json::Value GroupsJson(const std::vector<Group>& groups) {
  Json::Value array(Json::arrayValue);
  for (const Group& group : groups) {
    Json::Value record;
    record["gid"] = group.GetGID();
    record["name"] = group.GetGroupName();
    array.append(record);
  }
  return array;
}

void Set(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  const std::vector<Group> groups = GroupsOf(domain, call.List("GROUP"));
  const std::string role = call.Text("--role");
  if (!call.Has("--role")) {
    throw Failure(kUsage, "nothing to set: give --role");
  }
  RequireRole(role);
  std::vector<MDOMAIN::RECORD::DomainGroupRole> roles;
  roles.reserve(groups.size());
  for (const Group& group : groups) {
    roles.emplace_back(domain.idx(), group.GetGID(), role);
  }
  if (!DomainGroup().Set(roles)) {
    throw Failure(kFailed, "changing " + Names(groups) + " failed");
  }
  Json::Value done;
  done["groups"] = GroupsJson(groups);
  done["role"] = role;
  call.out().Done(done, Names(groups) + ": role " + role + " in domain " + domain.Title());
}

void Remove(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  const std::vector<Group> groups = GroupsOf(domain, call.List("GROUP"));
  call.Confirm("Take " + Names(groups) + " out of domain " + domain.Title() +
               " with the addresses of the users whom no other group keeps there?");
  if (!DomainGroup().Delete(domain.idx(), Ids(groups))) {
    throw Failure(kFailed, "removing " + Names(groups) + " failed");
  }
  Json::Value done;
  done["removed"] = GroupsJson(groups);
  call.out().Done(done, Names(groups) + " taken out of domain " + domain.Title());
}

void Restore(Call& call) {
  const KnownDomain domain = Domains().Find(call.Text("DOMAIN"));
  const std::vector<Group> groups = GroupsOf(domain, call.List("GROUP"));
  const std::vector<MDOMAIN::RECORD::User> users = FindUsers(call.List("--user"));
  if (!users.empty() && groups.size() != 1) {
    throw Failure(kUsage, "--user needs exactly one group");
  }
  DomainGroup api;
  const bool restored =
      users.empty() ? api.RestoreMemberStatus(domain.idx(), Ids(groups))
                    : api.RestoreMemberStatus(domain.idx(), groups.front().GetGID(), Ids(users));
  if (!restored) {
    throw Failure(kFailed, "restoring members of " + Names(groups) + " failed");
  }
  Json::Value done;
  done["groups"] = GroupsJson(groups);
  done["users"] = NamedUsers(Ids(users));
  call.out().Done(done, "members of " + Names(groups) + " restored in domain " + domain.Title());
}

const Argument kDomainArgument = One("DOMAIN", "Index or any name of the domain");
const Argument kGroup = One("GROUP", "Name or gid of the group");
const Argument kGroups = Many("GROUP", "Name or gid of a group");

const Register kGroupNoun({
    "group",
    "Groups of domains and their members",
    {
        {"list",
         "List a domain's groups with their role",
         "",
         Effect::kReads,
         {kDomainArgument,
          Option("--query", "TEXT", "Only groups whose name or description contains TEXT"),
          Number("--limit", "At most N groups"), Number("--offset", "Skip the first N groups")},
         List},
        {"members",
         "List the members of a group who are users of the domain",
         "",
         Effect::kReads,
         {kDomainArgument, kGroup},
         ListMembers},
        {"status",
         "Show which members of a group were removed from the domain",
         "",
         Effect::kReads,
         {kDomainArgument, kGroup},
         ShowStatus},
        {"add",
         "Add groups with their members to a domain",
         "The same as user add with --group. A group that is in already gets the role normal "
         "again.",
         Effect::kChanges,
         {kDomainArgument, kGroups},
         Add},
        {"set",
         "Change the role that groups give their members",
         "",
         Effect::kChanges,
         {kDomainArgument, kGroups, Option("--role", "ROLE", "normal or domain_admin")},
         Set},
        {"remove",
         "Take groups out of a domain",
         "Members whom no other group of the domain has lose their addresses there, also those "
         "who had been added by name.",
         Effect::kDestroys,
         {kDomainArgument, kGroups},
         Remove},
        {"restore",
         "Take removed members of groups in again",
         "Without --user all of them. Members are restored for every group of the domain that "
         "has them.",
         Effect::kChanges,
         {kDomainArgument, kGroups, Repeated("--user", "USER", "Only this member, by name or uid")},
         Restore},
    },
});

}  // namespace
}  // namespace mdomain
