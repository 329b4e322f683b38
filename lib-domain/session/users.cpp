// Users of domains, their roles and aliases.
#include "lib-domain/api/domain_user.h"

#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/user_choice.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/pages.h"
#include "lib-domain/session/user_choice.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/account.h"

namespace mdomain {

using MDOMAIN::API::DomainUser;
using session::Change;
using session::Fail;
using session::Known;
using session::Read;
using session::Refusals;
using session::Refuse;
using Record = MDOMAIN::RECORD::DomainUser;

namespace {

const char* ColumnOf(UserColumn column) {
  switch (column) {
    case UserColumn::kAlias:
      return "account_alias";
    case UserColumn::kRole:
      return "role";
    default:
      return "user_name";
  }
}

Version VersionOf(const User& user) {
  std::vector<std::string> parts = {user.name, session::TextOf(user.role),
                                    user.has_own_role ? "1" : "0"};
  for (const UserAlias& alias : user.aliases) {
    parts.push_back(alias.local_part);
  }
  std::sort(parts.begin() + 3, parts.end());  // their order follows the flags
  return session::VersionOf(parts);
}

std::string OwnerOf(int domain, const std::string& alias) {
  std::string owner;
  if (!DomainUser().GetAliasUser(domain, alias, owner)) {
    Fail("whose the aliases are could not be read");
  }
  return owner;
}

User UserOf(const Record& record) {
  User user;
  user.uid = record.GetUID();
  user.name = record.GetUserName();
  user.role = session::RoleOf(record.GetRole());
  user.has_own_role = !record.IsUnderGroupControl();
  user.group_role = record.IsBelongingGroupsInDomain()
                        ? session::RoleOf(record.GetResultGroupRole())
                        : Role::kNone;
  for (const auto& [alias, is_taken] : record.GetAliasDuplicatedPairs()) {
    user.aliases.push_back(
        {alias, is_taken, is_taken ? OwnerOf(record.GetDomainIdx(), alias) : ""});
  }
  user.version = VersionOf(user);
  return user;
}

std::optional<Record> FindRecord(int domain, std::uint32_t uid) {
  std::vector<Record> found;
  if (!MDOMAIN::DB::INTERNAL::AddDomainUser(domain, uid, found)) {
    Fail("the users of the domain could not be read");
  }
  return found.empty() ? std::nullopt : std::make_optional(found.front());
}

Record RecordOf(const Known& domain, std::uint32_t uid) {
  const std::optional<Record> found = FindRecord(domain.idx, uid);
  if (!found) {
    Refuse(Reason::kNotFound,
           "no user of domain " + domain.Title() + " has the uid " + std::to_string(uid));
  }
  return *found;
}

void RequireAliases(const Known& domain, const std::vector<std::string>& aliases,
                    Refusals& refusals) {
  MDOMAIN::CONTROL::INTERNAL::EntryNames entries;
  if (!aliases.empty() && !entries.Read()) {
    Fail("the addresses with several members could not be read");
  }
  for (const std::string& alias : aliases) {
    if (!MDOMAIN::UTILS::IsAccountAliasValid(alias)) {
      refusals.Add("alias", alias, "is no local part of an address");
    } else if (entries.Has(domain.idx, alias)) {
      refusals.Add("alias", alias, "goes to several in domain " + domain.Title());
    }
  }
}

using AliasPairs = std::vector<std::pair<std::string, bool>>;

auto SameAlias(const std::string& alias) {
  return [&alias](const std::pair<std::string, bool>& pair) {
    return MDOMAIN::BASE::EqualsIgnoreCase(pair.first, alias);
  };
}

AliasPairs ChangedAliases(const Known& domain, const UserChange& change, AliasPairs pairs,
                          Refusals& refusals) {
  if (change.aliases) {
    pairs.clear();
  }
  std::vector<std::string> added = change.aliases.value_or(std::vector<std::string>());
  added.insert(added.end(), change.add_aliases.begin(), change.add_aliases.end());
  RequireAliases(domain, added, refusals);
  std::unordered_set<std::string> known;
  for (const auto& pair : pairs) {
    known.insert(MDOMAIN::BASE::ToLowerAscii(pair.first));
  }
  for (const std::string& alias : added) {
    if (known.insert(MDOMAIN::BASE::ToLowerAscii(alias)).second) {
      pairs.emplace_back(alias, false);
    }
  }
  for (const std::string& alias : change.remove_aliases) {
    const auto gone = std::remove_if(pairs.begin(), pairs.end(), SameAlias(alias));
    if (gone == pairs.end()) {
      refusals.Add("alias", alias, "is none of the user's in domain " + domain.Title());
    }
    pairs.erase(gone, pairs.end());
  }
  if (pairs.empty()) {
    refusals.Add("alias", "", "would be the last: a user of a domain keeps at least one");
  }
  return pairs;
}

// The role to write. One of the groups is written as "group": its text would become a role of the
// user's own, which no longer follows them.
std::string ChangedRole(const UserChange& change, const Record& record, Refusals& refusals) {
  if (!change.role) {
    return record.IsUnderGroupControl() ? "group" : record.GetRole();
  }
  if (*change.role != Role::kNone) {
    return session::TextOf(*change.role);
  }
  if (!record.IsBelongingGroupsInDomain()) {
    refusals.Add("role", "group", "is given by no group of this domain");
  }
  return "group";
}

using Entries = std::vector<std::pair<std::string, std::string>>;  // kind and short name

std::vector<Record> PreviewOf(const Known& domain, const Members& members,
                              std::vector<std::string>& users, std::vector<std::string>& groups) {
  Entries entries;
  Refusals refusals;
  for (const auto& user : session::UsersOf(members.uids)) {
    if (KORVUserIsInternal(user.GetUserName().c_str())) {
      refusals.Add("member", user.GetUserName(), "is an internal account");
    }
    users.push_back(TrimDomainName(user.GetUserName()));
    entries.emplace_back("user", users.back());
  }
  for (const auto& group : session::GroupsOf(members.gids)) {
    groups.push_back(TrimDomainName(group.GetGroupName()));
    entries.emplace_back("group", groups.back());
  }
  refusals.End(Reason::kInvalid, "nobody was added");
  std::vector<Record> preview;
  if (!entries.empty() && !DomainUser().Preview(domain.idx, entries, preview)) {
    Fail("the aliases for domain " + domain.Title() + " could not be made");
  }
  return preview;
}

std::string CommandOf(const char* verb, const std::vector<std::uint32_t>& ids, int domain) {
  std::string command = verb;
  for (const std::uint32_t id : ids) {
    command += " " + std::to_string(id);
  }
  return command + " in domain " + std::to_string(domain);
}

// Those whom an earlier removal did not take out completely.
std::unordered_set<unsigned int> Leaving(int domain) {
  std::vector<MDOMAIN::CONTROL::INTERNAL::PendingDeparture> pending;
  if (!MDOMAIN::CONTROL::INTERNAL::ListPendingDepartures(pending)) {
    Fail("the users of the domain could not be read");
  }
  std::unordered_set<unsigned int> uids;
  for (const auto& departure : pending) {
    if (departure.domain_idx == domain) {
      uids.insert(departure.uids.begin(), departure.uids.end());
    }
  }
  return uids;
}

Page<User> ChosenPage(const Known& domain, const UserQuery& query,
                      const session::PlaceInList& place) {
  const auto uids = session::ChosenUsers(domain, query, ColumnOf(query.by));
  Page<User> page;
  const auto at = std::min(uids.size(), static_cast<std::size_t>(place.offset()));
  const auto end = std::min(uids.size(), at + static_cast<std::size_t>(place.limit()));
  std::vector<Record> records;
  if (!MDOMAIN::DB::INTERNAL::AddDomainUsers(domain.idx, {uids.data() + at, uids.data() + end},
                                             records)) {
    Fail("the users of the domain could not be read");
  }
  std::transform(records.begin(), records.end(), std::back_inserter(page.items), UserOf);
  place.End(uids.size(), page);
  return page;
}

}  // namespace

Result<Page<User>> Session::ListUsers(int domain, const UserQuery& query,
                                      const std::string& cursor) const {
  return session::ReadModel<Page<User>>(*this, [&] {
    const Known known = session::KnownDomain(*this, domain);
    const session::PlaceInList place(query.page_size, cursor);
    if (session::IsChoosing(query)) {
      return ChosenPage(known, query, place);
    }
    MDOMAIN::DB::DomainDBFilter filter("domain_user_view");
    session::Narrow(query.text, ColumnOf(query.by), query.is_descending, place, filter);
    filter.SetDomainIdxs({domain});
    DomainUser api;
    std::vector<Record> records;
    int total = 0;
    if (!api.ListWithExtraInfo(filter, records) || !api.GetDomainUsersCount(filter, total)) {
      Fail("the users of the domain could not be read");
    }
    Page<User> page;
    for (const Record& record : records) {
      page.items.push_back(UserOf(record));
    }
    place.End(static_cast<std::size_t>(total), page);
    return page;
  });
}

Range<User> Session::Users(int domain, const UserQuery& query) const {
  return Range<User>([session = *this, domain, query](const std::string& cursor) {
    return session.ListUsers(domain, query, cursor);
  });
}

Result<std::optional<User>> Session::FindUser(int domain, std::uint32_t uid) const {
  using Found = std::optional<User>;
  return session::ReadModel<Found>(*this, [&]() -> Found {
    session::KnownDomain(*this, domain);
    const std::optional<Record> found = FindRecord(domain, uid);
    return found ? std::make_optional(UserOf(*found)) : std::nullopt;
  });
}

Result<std::vector<Candidate>> Session::Preview(int domain, const Members& members) const {
  return Read<std::vector<Candidate>>(*this, [&] {
    std::vector<std::string> users;
    std::vector<std::string> groups;
    std::vector<Candidate> candidates;
    for (const Record& record :
         PreviewOf(session::KnownDomain(*this, domain), members, users, groups)) {
      Candidate candidate{record.GetUID(), record.GetUserName(), "", false};
      for (const auto& alias : record.ExtractDomainUserAliases()) {
        if (alias.IsValid()) {
          candidate.local_part = alias.GetAccountAlias();
          candidate.is_taken = alias.IsDuplicated();
        }
      }
      candidates.push_back(std::move(candidate));
    }
    return candidates;
  });
}

Result<std::vector<User>> Session::AddMembers(int domain, const Members& members,
                                              const std::vector<std::string>& aliases) {
  using Added = std::vector<User>;
  return Change<Added>(*this, CommandOf("add", members.uids, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    if (!aliases.empty() && (members.uids.size() != 1 || !members.gids.empty())) {
      Refuse(Reason::kInvalid, "aliases can be given for exactly one user and no group");
    }
    Refusals refusals;
    RequireAliases(known, aliases, refusals);
    refusals.End(Reason::kInvalid, "nobody was added");
    std::vector<std::string> users;
    std::vector<std::string> groups;
    const std::vector<Record> preview = PreviewOf(known, members, users, groups);
    std::vector<MDOMAIN::RECORD::DomainUserAlias> wanted;
    for (const Record& record : preview) {
      for (const std::string& alias : aliases) {
        wanted.emplace_back(domain, record.GetUID(), alias, false);
      }
      for (const auto& alias : record.ExtractDomainUserAliases()) {
        if (aliases.empty() && alias.IsValid()) {
          wanted.push_back(alias);
        }
      }
    }
    if (!DomainUser().AddMembers(domain, users, groups, wanted)) {
      Fail("adding to domain " + known.Title() + " failed");
    }
    Added added;
    for (const Record& record : preview) {
      if (const std::optional<Record> found = FindRecord(domain, record.GetUID())) {
        added.push_back(UserOf(*found));
      }
    }
    for (const std::uint32_t uid : members.uids) {
      if (std::none_of(added.begin(), added.end(),
                       [uid](const User& user) { return user.uid == uid; })) {
        refusals.Add("member", std::to_string(uid), "could not be added");
      }
    }
    refusals.End(Reason::kFailed, "nobody was added");
    return added;
  });
}

Result<User> Session::SetUser(int domain, std::uint32_t uid, const UserChange& change,
                              const Version& version) {
  return Change<User>(*this, CommandOf("set", {uid}, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    Record record = RecordOf(known, uid);
    session::RequireVersion(version, UserOf(record).version, record.GetUserName());
    Refusals refusals;
    record.SetRole(ChangedRole(change, record, refusals));
    record.SetAliasDuplicatedPairs(
        ChangedAliases(known, change, record.GetAliasDuplicatedPairs(), refusals));
    refusals.End(Reason::kInvalid, record.GetUserName() + " stays as it is");
    std::vector<Record> users = {record};
    std::vector<Record> conflicts;
    if (!DomainUser().Set(users, conflicts)) {
      Fail("changing " + record.GetUserName() + " failed");
    }
    return UserOf(RecordOf(known, uid));
  });
}

Result<Nothing> Session::RemoveUsers(int domain, const std::vector<std::uint32_t>& uids,
                                     const Version& version) {
  return Change<Nothing>(*this, CommandOf("remove", uids, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    if (!version.empty()) {
      session::RequireOne(uids.size(), "user");
      const Record record = RecordOf(known, uids.front());
      session::RequireVersion(version, UserOf(record).version, record.GetUserName());
    }
    const std::unordered_set<unsigned int> leaving = Leaving(domain);
    for (const std::uint32_t uid : uids) {
      if (leaving.count(uid) == 0) {
        RecordOf(known, uid);
      }
    }
    if (!uids.empty() && !DomainUser().Delete(domain, {uids.begin(), uids.end()})) {
      Fail("removing users of domain " + known.Title() + " failed");
    }
    return Nothing();
  });
}

Result<std::vector<std::string>> Session::Addresses(std::uint32_t uid, bool with_names) const {
  using Texts = std::vector<std::string>;
  return session::ReadModel<Texts>(*this, [&] {
    Texts addresses;
    for (const Known& known : session::KnownDomains(*this)) {
      const std::optional<Record> found = FindRecord(known.idx, uid);
      Texts names = {known.name};
      if (with_names) {
        names.insert(names.end(), known.additional_names.begin(), known.additional_names.end());
      }
      for (const std::string& name : found ? names : Texts()) {
        for (const auto& [alias, is_taken] : found->GetAliasDuplicatedPairs()) {
          if (!is_taken) {
            addresses.emplace_back(alias).append("@").append(name);
          }
        }
      }
    }
    return addresses;
  });
}

Result<std::optional<std::string>> Session::Owner(const std::string& address) const {
  using Found = std::optional<std::string>;
  return session::ReadModel<Found>(*this, [&]() -> Found {
    const size_t at = address.rfind('@');
    if (at == std::string::npos) {
      Refuse(Reason::kInvalid, "\"" + address + "\" is no address");
    }
    for (const Known& known : session::KnownDomains(*this)) {
      if (known.HasName(address.substr(at + 1))) {
        const std::string local_part = address.substr(0, at);
        bool is_entry = false;
        ::Alias::Entry entry;
        if (!MDOMAIN::API::AliasEntry().Find(known.idx, local_part, is_entry, entry)) {
          Fail("the addresses with several members could not be read");
        }
        const std::string owner = is_entry ? "" : OwnerOf(known.idx, local_part);
        return owner.empty() ? std::nullopt : std::make_optional(owner);
      }
    }
    return std::nullopt;
  });
}

}  // namespace mdomain
