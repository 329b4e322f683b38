// mdomain user preview, add, set, remove: who is in a domain, under which aliases, in which role.
#include <algorithm>
#include <unordered_set>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/account.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/look_alike.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/members.h"
#include "tools/mdomain/text.h"
#include "tools/mdomain/user_output.h"

namespace mdomain {
namespace {

using MDOMAIN::API::DomainUser;
using AliasPairs = std::vector<std::pair<std::string, bool>>;

void RequireAliases(const std::vector<std::string>& aliases) {
  for (const std::string& alias : aliases) {
    if (!MDOMAIN::UTILS::IsAccountAliasValid(alias)) {
      throw Failure(kRefused, "\"" + alias +
                                  "\" cannot be an alias: it is no local part of a mail "
                                  "address");
    }
  }
}

// An address with several members keeps its name.
void RefuseEntries(const KnownDomain& domain, const std::vector<std::string>& aliases) {
  for (const std::string& alias : aliases) {
    bool found = false;
    ::Alias::Entry entry;
    if (!MDOMAIN::API::AliasEntry().Find(domain.idx, alias, found, entry)) {
      throw Failure(kFailed, "the addresses with several members could not be read");
    }
    if (found) {
      throw Failure(kRefused, "\"" + alias + "\" has several members in domain " + domain.Title() +
                                  ": see mdomain alias show");
    }
  }
}

Members TypedMembers(const Call& call) {
  Members members{FindUsers(call.List("USER")), FindGroups(call.List("--group"))};
  if (members.users.empty() && members.groups.empty()) {
    throw Failure(kUsage, "name a user or a --group");
  }
  return members;
}

// Every account that is not in the domain and was not taken out of it.
Members EverybodyElse(const Call& call, const KnownDomain& domain) {
  if (!call.List("USER").empty() || !call.List("--group").empty() || call.Has("--alias")) {
    throw Failure(kUsage, "--all names everybody: no USER, --group or --alias beside it");
  }
  DomainUser api;
  std::vector<unsigned int> uids;
  std::unordered_set<unsigned int> passed_over;
  if (!api.List(domain.idx, uids) || !api.GetAllRemovedUIDs(domain.idx, passed_over)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  passed_over.insert(uids.begin(), uids.end());
  Members members;
  const korvmailserver::AccountSnapshot of_one_reading;
  for (MDOMAIN::RECORD::User& user : ListUsers(MDOMAIN::DB::UserDBFilter())) {
    if (passed_over.count(user.GetUID()) == 0 && !KORVUserIsInternal(user.GetUserName().c_str())) {
      members.users.push_back(std::move(user));
    }
  }
  return members;
}

void Preview(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  Json::Value records(Json::arrayValue);
  for (const auto& user : PreviewMembers(domain, TypedMembers(call))) {
    records.append(PreviewJson(user));
  }
  call.out().List(records, PreviewColumns(records));
}

void Add(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const Members members = call.Has("--all") ? EverybodyElse(call, domain) : TypedMembers(call);
  const std::vector<std::string> aliases = call.List("--alias");
  if (!aliases.empty()) {
    RefuseInternal(members.users, {});  // a wrong account is told before a wrong alias
  }
  if (!aliases.empty() && (members.users.size() != 1 || !members.groups.empty())) {
    throw Failure(kUsage, "--alias needs exactly one user and no group");
  }
  RequireAliases(aliases);
  RefuseEntries(domain, aliases);
  AddMembers(call, domain, members, aliases);
}

// The user as the domain has it; kNotFound for somebody who is not a user of the domain.
MDOMAIN::RECORD::DomainUser DomainUserOf(const KnownDomain& domain,
                                         const MDOMAIN::RECORD::User& user) {
  std::vector<MDOMAIN::RECORD::DomainUser> found;
  if (!MDOMAIN::DB::INTERNAL::AddDomainUser(domain.idx, user.GetUID(), found)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  if (!found.empty()) {
    return found.front();
  }
  throw Failure(kNotFound, "\"" + user.GetUserName() + "\" is no user of domain " + domain.Title());
}

auto SameAlias(const std::string& alias) {
  return [alias](const std::pair<std::string, bool>& pair) {
    return MDOMAIN::BASE::EqualsIgnoreCase(pair.first, alias);
  };
}

AliasPairs ChangedAliases(const Call& call, const KnownDomain& domain, AliasPairs pairs) {
  if (call.Has("--alias")) {
    pairs.clear();
  }
  std::vector<std::string> added = call.List("--alias");
  const std::vector<std::string> more = call.List("--add-alias");
  added.insert(added.end(), more.begin(), more.end());
  RequireAliases(added);
  RefuseEntries(domain, added);
  for (const std::string& alias : added) {
    if (std::none_of(pairs.begin(), pairs.end(), SameAlias(alias))) {
      pairs.emplace_back(alias, false);
    }
  }
  for (const std::string& alias : call.List("--remove-alias")) {
    const auto gone = std::remove_if(pairs.begin(), pairs.end(), SameAlias(alias));
    if (gone == pairs.end()) {
      throw Failure(kNotFound, "the user has no alias \"" + alias + "\" in this domain");
    }
    pairs.erase(gone, pairs.end());
  }
  if (pairs.empty()) {
    throw Failure(kRefused,
                  "a user of a domain keeps at least one alias; to take the user out of "
                  "the domain, use mdomain user remove");
  }
  return pairs;
}

// The role to write. A role that comes from a group is written as "group": its text would become a
// role of the user's own, which no longer follows the group.
std::string ChangedRole(const Call& call, const MDOMAIN::RECORD::DomainUser& user) {
  if (!call.Has("--role")) {
    return user.IsUnderGroupControl() ? "group" : user.GetRole();
  }
  std::string role = call.Text("--role");
  if (role != "group") {
    RequireRole(role);
  } else if (!user.IsBelongingGroupsInDomain()) {
    throw Failure(kRefused, "\"" + user.GetUserName() +
                                "\" is in no group of this domain that could give a role");
  }
  return role;
}

void Set(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const MDOMAIN::RECORD::User account = FindUser(call.Text("USER"));
  if (!call.Has("--role") && !call.Has("--alias") && !call.Has("--add-alias") &&
      !call.Has("--remove-alias")) {
    throw Failure(kUsage, "nothing to set: give --role, --alias, --add-alias or --remove-alias");
  }
  std::vector<MDOMAIN::RECORD::DomainUser> users = {DomainUserOf(domain, account)};
  users[0].SetRole(ChangedRole(call, users[0]));
  users[0].SetAliasDuplicatedPairs(
      ChangedAliases(call, domain, users[0].GetAliasDuplicatedPairs()));
  std::vector<std::string> aliases;
  for (const auto& pair : users[0].GetAliasDuplicatedPairs()) {
    aliases.push_back(pair.first);
  }
  const LookAlikes look_alikes(domain.idx, aliases);
  std::vector<MDOMAIN::RECORD::DomainUser> conflicts;
  DomainUser api;
  if (!api.Set(users, conflicts)) {
    throw ApiFailure(api.GetErrorCode(), "changing \"" + account.GetUserName() + "\"");
  }
  Json::Value record = UserJson(DomainUserOf(domain, account));
  look_alikes.Warn(record);
  record["conflicting_accounts"] = Json::Value(Json::arrayValue);
  for (const auto& conflict : conflicts) {
    record["conflicting_accounts"] = JsonTexts(conflict.GetConflictingAccountNames());
  }
  std::vector<Column> columns = UserColumns();
  columns.push_back({"conflicting_accounts", "SAME AS ACCOUNT"});
  call.out().Record(record, columns);
}

// Those of the users who are in the domain, and those whom an earlier run did not take out
// completely.
std::unordered_set<unsigned int> RemovableUsers(const KnownDomain& domain,
                                                const std::vector<MDOMAIN::RECORD::User>& users) {
  std::vector<MDOMAIN::RECORD::DomainUser> members;
  std::vector<MDOMAIN::CONTROL::INTERNAL::PendingDeparture> pending;
  const bool are_read = std::all_of(users.begin(), users.end(), [&](const auto& user) {
    return MDOMAIN::DB::INTERNAL::AddDomainUser(domain.idx, user.GetUID(), members);
  });
  if (!are_read || !MDOMAIN::CONTROL::INTERNAL::ListPendingDepartures(pending)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  std::unordered_set<unsigned int> removable;
  for (const auto& member : members) {
    removable.insert(member.GetUID());
  }
  for (const auto& departure : pending) {
    if (departure.domain_idx == domain.idx) {
      removable.insert(departure.uids.begin(), departure.uids.end());
    }
  }
  return removable;
}

void Remove(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::vector<MDOMAIN::RECORD::User> users = FindUsers(call.List("USER"));
  const std::unordered_set<unsigned int> known = RemovableUsers(domain, users);
  for (const auto& user : users) {
    if (known.count(user.GetUID()) == 0) {
      throw Failure(kNotFound,
                    "\"" + user.GetUserName() + "\" is no user of domain " + domain.Title());
    }
  }
  call.Confirm("Take " + Counted(users.size(), "user") + " out of domain " + domain.Title() +
               " with their addresses there?");
  DomainUser api;
  if (!api.Delete(domain.idx, Ids(users))) {
    throw ApiFailure(api.GetErrorCode(), "removing the users");
  }
  Json::Value record;
  record["removed"] = AccountsJson(users);
  call.out().Done(record, Counted(users.size(), "user") + " taken out of domain " + domain.Title());
}

const Argument kUsers = Any("USER", "Name or uid of a user");
const Argument kGroups = Repeated("--group", "GROUP", "Name or gid of a group, for its members");

const Register kUserChanges({
    "user",
    "",
    {
        {"preview",
         "Show which aliases users would get",
         "Where the domain's pattern gives no local part of an address (too long, or nothing left "
         "of "
         "it) the account name takes its place. A user whose account name is none either would "
         "get no address, and is shown so. Nothing is changed.",
         Effect::kReads,
         {DomainArgument(), kUsers, kGroups},
         Preview},
        {"add",
         "Add users, and groups with their members, to a domain",
         "Each user gets the alias that preview shows, and keeps those that are there. An alias "
         "that another user has is stored and flagged as a collision. Users who were removed from "
         "the domain are taken in again, but not by --all.",
         Effect::kChanges,
         {DomainArgument(), kUsers, kGroups,
          Flag("--all", "Everybody whom a refresh has found and who is not in the domain"),
          Repeated("--alias", "ALIAS",
                   "An alias for the one user named, in place of the pattern's")},
         Add},
        {"set",
         "Change a user's role or aliases in a domain",
         "",
         Effect::kChanges,
         {DomainArgument(), One("USER", "Name or uid of the user"),
          Option("--role", "ROLE",
                 "normal, domain_admin, or group for the role that the user's groups give"),
          Repeated("--alias", "ALIAS", "Replace all aliases by these"),
          Repeated("--add-alias", "ALIAS", "Add an alias"),
          Repeated("--remove-alias", "ALIAS", "Remove an alias")},
         Set},
        {"remove",
         "Take users out of a domain",
         "The users' aliases, rules and disclaimers in the domain are deleted. Members of a group "
         "that is in the domain stay out until they are added or restored.",
         Effect::kDestroys,
         {DomainArgument(), Many("USER", "Name or uid of a user")},
         Remove},
    },
});

}  // namespace
}  // namespace mdomain
