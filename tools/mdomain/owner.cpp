// mdomain owner: the registry that tells mail services who owns an address.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <system_error>

#include "lib-domain/api/email_owner.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/node_publication.h"
#include "lib-domain/sync/owner_registry.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/alias.h"
#include "platform/include/files.h"
#include "platform/include/postfix_map.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::API::EmailOwner;
using MDOMAIN::UTILS::OwnerCheck;

std::vector<std::string> TypedAddresses(const Call& call) {
  std::vector<std::string> addresses;
  for (const std::string& text : call.List("ADDRESS")) {
    if (text != "-") {
      addresses.push_back(text);
      continue;
    }
    std::string line;
    while (std::getline(std::cin, line)) {
      if (!line.empty() && line.back() == '\r') {
        line.pop_back();
      }
      if (!line.empty()) {
        addresses.push_back(line);
      }
    }
  }
  return addresses;
}

// An address splits at its first "@". It holds no control character: a NUL would make the look-up
// answer for the text before it.
bool IsAddress(const std::string& text) {
  const size_t at = text.find('@');
  return at != std::string::npos && at != 0 && at + 1 != text.size() && Printable(text) == text;
}

// Opening a registry makes it, and an empty one would answer that nobody owns the address.
void RequireRegistry() {
  std::error_code error;
  const std::string path = MDOMAIN::PATHS::EmailOwnerDb();
  const bool is_empty = std::filesystem::file_size(path, error) == 0 && !error;
  if (is_empty || !postara::sdk::Exist(path)) {
    throw Failure(kNotFound, "there is no owner registry yet: run mdomain owner build");
  }
}

// Of all domains, by name as Postfix compares it.
std::multimap<std::string, ::Alias::Entry> Entries() {
  ::Alias table(MDOMAIN::PATHS::AliasDb());
  if (table.load() < 0) {
    throw Failure(kFailed, "the addresses with several members could not be read");
  }
  std::multimap<std::string, ::Alias::Entry> entries;
  for (const ::Alias::Entry& entry : table.list()) {
    entries.emplace(korvmailserver::FoldMapKey(entry.name), entry);
  }
  return entries;
}

// Adds the entry and its members where the address goes to several, whatever the registry says: an
// entry comes before an alias of its name.
void AddEntry(const std::string& address, Json::Value& record) {
  const size_t at = address.find('@');
  const std::string name = address.substr(at + 1);
  // Once for all addresses.
  static const Domains domains;
  static const std::multimap<std::string, ::Alias::Entry> entries = Entries();
  const auto [begin, end] = entries.equal_range(korvmailserver::FoldMapKey(address.substr(0, at)));
  for (auto found = begin; found != end; ++found) {
    const ::Alias::Entry& entry = found->second;
    for (const KnownDomain& domain : domains.all()) {
      const bool is_of_domain =
          SameDomainName(domain.name, name) ||
          std::any_of(
              domain.additional_names.begin(), domain.additional_names.end(),
              [&name](const std::string& further) { return SameDomainName(further, name); });
      if (!is_of_domain || entry.domain_id != domain.idx) {
        continue;
      }
      record["entry"] = entry.name + "@" + domain.name;
      for (const ::Alias::Member& member : entry.members) {
        record["members"].append(member.name);
      }
    }
  }
}

void Lookup(Call& call) {
  RequireRegistry();
  EmailOwner registry;
  Json::Value records(Json::arrayValue);
  Status status = kDone;
  for (const std::string& address : TypedAddresses(call)) {
    Json::Value record;
    std::string owner;
    if (!IsAddress(address)) {
      status = kRefused;
    } else if (!registry.GetOwner(address, owner)) {
      throw Failure(kFailed, "the owner registry could not be read");
    } else {
      record["entry"] = "";
      record["members"] = Json::Value(Json::arrayValue);
      AddEntry(address, record);
      const bool has_somebody = !owner.empty() || !record["members"].empty();
      status = !has_somebody && status == kDone ? kNotFound : status;
    }
    record["address"] = address;
    record["owner"] = owner;
    records.append(record);
  }
  std::vector<Column> columns = {{"address", "ADDRESS"}, {"owner", "OWNER"}};
  if (std::any_of(records.begin(), records.end(),
                  [](const Json::Value& record) { return !record["members"].empty(); })) {
    columns.push_back({"entry", "ENTRY"});
    columns.push_back({"members", "MEMBERS"});
  }
  call.out().List(records, columns);
  call.out().Flush();
  if (status != kDone) {
    throw Failure(status, status == kRefused ? "not every text is a mail address"
                                             : "not every address has an owner");
  }
}

void Publish() {
  if (!MDOMAIN::UTILS::PublishNodeFiles()) {
    throw Failure(kFailed, "the registry was changed but could not be published");
  }
}

void Add(Call& call) {
  RequireRegistry();
  const std::string address = call.Text("ADDRESS");
  const size_t at = address.find('@');
  if (!IsAddress(address) || !MDOMAIN::UTILS::IsAccountAliasValid(address.substr(0, at))) {
    throw Failure(kRefused, "\"" + address + "\" is not an address");
  }
  const std::string domain_name = address.substr(at + 1);
  const KnownDomain domain = Domains().Find(domain_name);
  const MDOMAIN::RECORD::User user = FindUser(call.Text("USER"));
  EmailOwner registry;
  std::string owner;
  if (!registry.GetOwner(address, owner)) {
    throw Failure(kFailed, "the owner registry could not be read");
  }
  if (!owner.empty() && owner != user.GetUserName()) {
    throw Failure(kRefused, "\"" + address + "\" belongs to " + owner);
  }
  if (owner.empty() &&
      (!registry.CreateDomainPart({{domain_name, domain.idx}}) ||
       !registry.CreateLocalPart({{address.substr(0, at), domain.idx, user.GetUserName()}}))) {
    throw Failure(kFailed, "the owner registry could not be written");
  }
  Publish();
  Json::Value record;
  record["address"] = address;
  record["owner"] = user.GetUserName();
  call.out().Done(record, address + " belongs to " + user.GetUserName());
}

void Build(Call& call) {
  MDOMAIN::UTILS::OwnerCounts counts;
  if (!MDOMAIN::UTILS::BuildOwners(counts)) {
    throw Failure(kFailed, "the owner registry could not be replaced; the old one is in place");
  }
  Publish();
  Json::Value record;
  record["domain_names"] = Json::UInt64(counts.domain_names);
  record["local_parts"] = Json::UInt64(counts.local_parts);
  call.out().Done(record, "registered " + Counted(counts.local_parts, "local part") + " and " +
                              Counted(counts.domain_names, "domain name"));
}

void Check(Call& call) {
  Listing listing(call.out(),
                  {{"kind", "KIND"}, {"entry", "ENTRY"}, {"domain", "DOMAIN"}, {"owner", "OWNER"}});
  bool has_any = false;
  const auto append = [&](const char* kind, const std::string& text, int domain,
                          const std::string& owner) {
    Json::Value record;
    record["kind"] = kind;
    record["entry"] = text;
    record["domain"] = domain;
    record["owner"] = owner;
    listing.Add(record);
    has_any = true;
  };
  const OwnerCheck result = MDOMAIN::UTILS::FindStaleOwners(
      MDOMAIN::PATHS::EmailOwnerDb(),
      [&](const auto& part) { append("domain", part.GetDomainName(), part.GetDomainIdx(), ""); },
      [&](const auto& part) {
        append("local_part", part.GetLocalPart(), part.GetDomainIdx(), part.GetUserName());
      });
  if (result != OwnerCheck::kDone) {
    throw Failure(kFailed, result == OwnerCheck::kModelUnread
                               ? "the addresses could not be read"
                               : "the owner registry could not be read");
  }
  listing.End();
  if (has_any) {
    call.out().Flush();
    throw Failure(kFailed,
                  "the registry holds entries that the domain database has not: run "
                  "mdomain owner build");
  }
}

const Register kOwner({
    "owner",
    "The registry of address owners",
    {
        {"lookup",
         "Show whose addresses these are",
         "Answers from the registry, not from the domain database, and names the address with "
         "several "
         "members that comes before the owner of an alias of that name. Ends with 4 when an "
         "address has "
         "no owner, with 3 when a text is not an address; the others are answered all the same.",
         Effect::kReads,
         {Many("ADDRESS", "An address, or - to read one per line from standard input")},
         Lookup},
        {"add",
         "Add one address",
         "An address that belongs to another user is refused. The next build drops what the domain "
         "database does not have.",
         Effect::kChanges,
         {One("ADDRESS", "The address; its domain must exist"),
          One("USER", "Name or uid of the owner")},
         Add,
         "There is no --dry-run: the registry is no part of the model, and mdomain owner lookup "
         "tells "
         "who has the address."},
        {"build",
         "Make the registry what the domain database says",
         "From then on it follows every change. Readers see the old or the new registry, whole. "
         "Where several users have one alias, the one whose alias is not flagged is the owner. "
         "Entries that others added go.",
         Effect::kChanges,
         {},
         Build,
         "There is no --dry-run: the registry follows from the model, and mdomain owner check "
         "tells "
         "what would go."},
        {"check",
         "List entries that the domain database no longer has",
         "Ends with 1 when there are any.",
         Effect::kReads,
         {},
         Check},
    },
});

}  // namespace
}  // namespace mdomain
