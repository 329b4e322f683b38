// mdomain domain show: everything about one domain.
#include <json/value.h>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/mimedefang.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/stored_copies.h"

namespace mdomain {
namespace {

int CountGroups(int domain_idx) {
  MDOMAIN::DB::DomainDBFilter filter("domain_group_view");
  filter.SetDomainIdxs({domain_idx});
  int count = 0;
  if (!MDOMAIN::API::DomainGroup().GetDomainGroupsCount(filter, count)) {
    throw Failure(kFailed, "the groups of the domain could not be read");
  }
  return count;
}

size_t CountCollisions(int domain_idx) {
  std::vector<std::string> aliases;
  if (!MDOMAIN::API::DomainUser().ListDuplicatedEmail(domain_idx, aliases)) {
    throw Failure(kFailed, "the colliding aliases could not be read");
  }
  return aliases.size();
}

size_t CountEntries(int domain_idx) {
  std::vector<::Alias::Entry> entries;
  if (!MDOMAIN::API::AliasEntry().List(domain_idx, entries)) {
    throw Failure(kFailed, "the addresses with several members could not be read");
  }
  return entries.size();
}

// Null when the list cannot be read, as a damaged one must not keep all else from being shown.
Json::Value CountDisclaimers(int domain_idx) {
  Json::Value list;
  return MimeDefang().GetDisclaimerList(domain_idx, list) < 0 ? Json::Value()
                                                              : Json::Value(list.size());
}

std::string WriteCount(const Json::Value& count) {
  return count.isNull() ? "cannot be read" : count.asString();
}

void Show(Call& call) {
  const Domains domains;
  const KnownDomain& domain = domains.Find(call.Text("DOMAIN"));
  Json::Value record = DomainJson(domain);
  record["groups"] = CountGroups(domain.idx);
  record["collisions"] = static_cast<Json::UInt64>(CountCollisions(domain.idx));
  record["entries"] = static_cast<Json::UInt64>(CountEntries(domain.idx));
  int copies = 0;
  ForEachCopy(domain.idx, [&copies](const BccInfo& /*rule*/) { ++copies; });
  record["copies"] = copies;
  record["disclaimers"] = CountDisclaimers(domain.idx);
  call.out().Record(record, {{"id", "ID"},
                             {"name", "NAME"},
                             {"additional_names", "ADDITIONAL NAMES"},
                             {"description", "DESCRIPTION"},
                             {"alias_pattern", "PATTERN"},
                             {"auto_add", "AUTO-ADD"},
                             {"primary", "PRIMARY"},
                             {"users", "USERS"},
                             {"groups", "GROUPS"},
                             {"collisions", "COLLIDING ALIASES"},
                             {"entries", "ADDRESSES WITH SEVERAL MEMBERS"},
                             {"copies", "BLIND COPIES"},
                             {"disclaimers", "DISCLAIMERS", WriteCount}});
}

const Register kShow({
    "domain",
    "",
    {{"show",
      "Show everything about one domain",
      "Its names and properties, and how many users, groups, colliding aliases, addresses with "
      "several members, rules of blind copies and disclaimers it has. \"disclaimers\" is null "
      "where "
      "their list cannot be read.",
      Effect::kReads,
      {DomainArgument()},
      Show}},
});

}  // namespace
}  // namespace mdomain
