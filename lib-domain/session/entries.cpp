// Addresses of domains that go to several.
#include "lib-domain/api/alias_entry.h"

#include "lib-domain/session/access.h"

namespace mdomain {

using MDOMAIN::API::AliasEntry;
using session::Change;
using session::Fail;
using session::Known;
using session::Read;
using Kind = ::Alias::MemberKind;

namespace {

Entry EntryOf(const ::Alias::Entry& stored) {
  Entry entry;
  entry.name = stored.name;
  std::vector<std::string> parts = {stored.name};
  for (const auto& member : stored.members) {
    auto& members = member.kind == Kind::User    ? entry.users
                    : member.kind == Kind::Group ? entry.groups
                                                 : entry.addresses;
    members.push_back(member.name);
    parts.push_back(std::to_string(static_cast<int>(member.kind)) + member.name);
  }
  entry.version = session::VersionOf(parts);
  return entry;
}

::Alias::Entry Stored(int domain, const Entry& entry) {
  ::Alias::Entry stored{entry.name, domain, {}};
  for (const auto& [kind, names] : {std::pair(Kind::User, &entry.users),
                                    {Kind::Group, &entry.groups},
                                    {Kind::Address, &entry.addresses}}) {
    for (const std::string& name : *names) {
      stored.members.push_back({kind, name});
    }
  }
  return stored;
}

std::optional<Entry> Find(int domain, const std::string& name) {
  bool found = false;
  ::Alias::Entry stored;
  if (!AliasEntry().Find(domain, name, found, stored)) {
    Fail("the addresses with several members could not be read");
  }
  return found ? std::make_optional(EntryOf(stored)) : std::nullopt;
}

Entry Get(int domain, const std::string& name) {
  const std::optional<Entry> found = Find(domain, name);
  if (!found) {
    session::Refuse(Reason::kNotFound,
                    "domain " + std::to_string(domain) + " has no entry \"" + name + "\"");
  }
  return *found;
}

[[noreturn]] void Stop(AliasEntry::Result result, const std::string& problem,
                       const std::string& name, const Known& domain) {
  const std::string subject = problem.empty() ? name : problem;
  Error error;
  error.reason = Reason::kInvalid;
  switch (result) {
    case AliasEntry::Result::kInvalid:
      error.refused = {{"member", subject, "is no local part, no account, or no address"}};
      break;
    case AliasEntry::Result::kTaken:
      error.reason = Reason::kTaken;
      error.refused = {{"name", name, "is an alias of " + problem}};
      break;
    case AliasEntry::Result::kExists:
      error.reason = Reason::kTaken;
      error.refused = {{"name", name, "is an entry already"}};
      break;
    case AliasEntry::Result::kMissing:
      error.reason = Reason::kNotFound;
      error.refused = {{"name", name, "is no entry"}};
      break;
    case AliasEntry::Result::kNobody:
      error.refused = {{"member", subject, "is an address that nobody has"}};
      break;
    case AliasEntry::Result::kLoop:
      error.refused = {{"member", subject, "leads back to the entry"}};
      break;
    case AliasEntry::Result::kUnpublished:
      error.reason = Reason::kFailed;
      error.number = MDOMAIN::BASE::kApiErrorUnpublished;
      error.refused = {{"name", name, "could not be published"}};
      break;
    default:
      Fail("changing the entry \"" + name + "\" failed");
  }
  const Refused& refused = error.refused.front();
  error.text = "\"" + refused.value + "\" " + refused.why + " in domain " + domain.Title();
  throw session::Stop(std::move(error));
}

void RequireDone(const AliasEntry& api, AliasEntry::Result result, const std::string& name,
                 const Known& domain) {
  if (result != AliasEntry::Result::kDone) {
    Stop(result, api.Problem(), name, domain);
  }
}

std::string CommandOf(const char* verb, const std::string& name, int domain) {
  return std::string(verb) + " entry " + name + " of domain " + std::to_string(domain);
}

}  // namespace

Result<std::vector<Entry>> Session::Entries(int domain) const {
  return Read<std::vector<Entry>>(*this, [&] {
    session::KnownDomain(*this, domain);
    std::vector<::Alias::Entry> stored;
    if (!AliasEntry().List(domain, stored)) {
      Fail("the addresses with several members could not be read");
    }
    std::vector<Entry> entries;
    entries.reserve(stored.size());
    for (const auto& entry : stored) {
      entries.push_back(EntryOf(entry));
    }
    return entries;
  });
}

Result<std::optional<Entry>> Session::FindEntry(int domain, const std::string& name) const {
  return Read<std::optional<Entry>>(*this, [&] {
    session::KnownDomain(*this, domain);
    return Find(domain, name);
  });
}

Result<Entry> Session::CreateEntry(int domain, const Entry& entry) {
  return Change<Entry>(*this, CommandOf("create", entry.name, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    AliasEntry api;
    RequireDone(api, api.Create(Stored(domain, entry)), entry.name, known);
    return Get(domain, entry.name);
  });
}

Result<Entry> Session::SetEntry(int domain, const Entry& entry, const Version& version) {
  return Change<Entry>(*this, CommandOf("set", entry.name, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    session::RequireVersion(version, Get(domain, entry.name).version, "entry " + entry.name);
    AliasEntry api;
    RequireDone(api, api.Set(Stored(domain, entry)), entry.name, known);
    return Get(domain, entry.name);
  });
}

Result<Nothing> Session::DeleteEntry(int domain, const std::string& name, const Version& version) {
  return Change<Nothing>(*this, CommandOf("delete", name, domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    if (!version.empty()) {
      session::RequireVersion(version, Get(domain, name).version, "entry " + name);
    }
    AliasEntry api;
    RequireDone(api, api.Delete(domain, name), name, known);
    return Nothing();
  });
}

}  // namespace mdomain
