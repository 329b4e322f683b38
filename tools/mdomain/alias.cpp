// mdomain alias: addresses of a domain that go to several.
#include "lib-domain/api/alias_entry.h"

#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::API::AliasEntry;
using Entry = ::Alias::Entry;
using Kind = ::Alias::MemberKind;
using Result = AliasEntry::Result;

Json::Value EntryJson(const Entry& entry) {
  Json::Value record;
  record["name"] = entry.name;
  for (const char* kind : {"users", "groups", "addresses"}) {
    record[kind] = Json::Value(Json::arrayValue);
  }
  for (const ::Alias::Member& member : entry.members) {
    record[member.kind == Kind::User    ? "users"
           : member.kind == Kind::Group ? "groups"
                                        : "addresses"]
        .append(member.name);
  }
  return record;
}

const std::vector<Column> kColumns = {
    {"name", "NAME"}, {"users", "USERS"}, {"groups", "GROUPS"}, {"addresses", "ADDRESSES"}};

// The entry as it is typed, its accounts by their full names.
Entry TypedEntry(const Call& call, const KnownDomain& domain) {
  Entry entry{call.Text("NAME"), domain.idx, {}};
  for (const auto& user : FindUsers(call.List("--user"))) {
    entry.members.push_back({Kind::User, user.GetUserName()});
  }
  for (const auto& group : FindGroups(call.List("--group"))) {
    entry.members.push_back({Kind::Group, group.GetGroupName()});
  }
  for (const std::string& address : call.List("--address")) {
    entry.members.push_back({Kind::Address, address});
  }
  if (entry.members.empty()) {
    throw Failure(kUsage, "name members: --user, --group or --address");
  }
  return entry;
}

[[noreturn]] void Refuse(Result result, const AliasEntry& api, const std::string& name,
                         const KnownDomain& domain) {
  const std::string quoted = "\"" + name + "\"";
  switch (result) {
    case Result::kInvalid:
      throw Failure(kRefused, "\"" + (api.Problem().empty() ? name : api.Problem()) +
                                  "\" is no local part, or no address");
    case Result::kTaken:
      throw Failure(kRefused,
                    quoted + " is an alias of " + api.Problem() + " in domain " + domain.Title());
    case Result::kExists:
      throw Failure(kRefused, quoted + " is there already in domain " + domain.Title() +
                                  ": change it with mdomain alias set");
    case Result::kMissing:
      throw Failure(kNotFound, "domain " + domain.Title() + " has no entry " + quoted);
    case Result::kNobody:
      throw Failure(kRefused, "nobody has the address \"" + api.Problem() + "\"");
    case Result::kLoop:
      throw Failure(kRefused, "\"" + api.Problem() + "\" leads back to " + quoted);
    case Result::kUnpublished:
      throw Failure(kFailed, "the entry was changed but not published");
    default:
      throw Failure(kFailed, "the entry could not be changed");
  }
}

Entry FindEntry(const KnownDomain& domain, const std::string& name) {
  AliasEntry api;
  bool found = false;
  Entry entry;
  if (!api.Find(domain.idx, name, found, entry)) {
    throw Failure(kFailed, "the entries could not be read");
  }
  if (!found) {
    Refuse(Result::kMissing, api, name, domain);
  }
  return entry;
}

void Print(Call& call, const KnownDomain& domain, const std::string& name) {
  call.out().Record(EntryJson(FindEntry(domain, name)), kColumns);
}

void List(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  std::vector<Entry> entries;
  if (!AliasEntry().List(domain.idx, entries)) {
    throw Failure(kFailed, "the entries could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const Entry& entry : entries) {
    records.append(EntryJson(entry));
  }
  call.out().List(records, kColumns);
}

void Show(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  Print(call, domain, call.Text("NAME"));
}

void Store(Call& call, Result (AliasEntry::*store)(const Entry&)) {
  const KnownDomain domain = TypedDomain(call);
  const Entry entry = TypedEntry(call, domain);
  AliasEntry api;
  const Result result = (api.*store)(entry);
  if (result != Result::kDone) {
    Refuse(result, api, entry.name, domain);
  }
  Print(call, domain, entry.name);
}

void Create(Call& call) {
  Store(call, &AliasEntry::Create);
}

void Set(Call& call) {
  Store(call, &AliasEntry::Set);
}

void Delete(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  const std::string name = FindEntry(domain, call.Text("NAME")).name;
  call.Confirm("Delete the entry \"" + name + "\" of domain " + domain.Title() + "?");
  AliasEntry api;
  const Result result = api.Delete(domain.idx, name);
  if (result != Result::kDone) {
    Refuse(result, api, name, domain);
  }
  call.out().Done(EntryJson({name, domain.idx, {}}), "deleted " + name);
}

Argument NameArgument() {
  return One("NAME", "What stands before the @ of the address");
}

std::vector<Argument> StoreArguments() {
  return {DomainArgument(), NameArgument(),
          Repeated("--user", "USER", "A member: name or uid of a user, in the domain or not"),
          Repeated("--group", "GROUP", "A member: name or gid of a group, for all who are in it"),
          Repeated("--address", "ADDRESS",
                   "A member: an address elsewhere, or one of ours that somebody has")};
}

const Register kAlias({
    "alias",
    "Addresses of a domain that go to several",
    {
        {"list",
         "List a domain's addresses with several members",
         "",
         Effect::kReads,
         {DomainArgument()},
         List},
        {"show", "Show one", "", Effect::kReads, {DomainArgument(), NameArgument()}, Show},
        {"create", "Make one",
         "A name that a user of the domain has as an alias is refused, and so is an address of "
         "ours "
         "that nobody has or that leads back to this one. Whoever enters or leaves a group gets "
         "the mail from then on, or no longer. An alias that the pattern of the domain gives to a "
         "later account and that equals the name is flagged as a collision.",
         Effect::kChanges, StoreArguments(), Create},
        {"set", "Give one other members", "They replace those it has.", Effect::kChanges,
         StoreArguments(), Set},
        {"delete", "Delete one", "", Effect::kDestroys, {DomainArgument(), NameArgument()}, Delete},
    },
});

}  // namespace
}  // namespace mdomain
