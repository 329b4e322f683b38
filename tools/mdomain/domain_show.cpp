// mdomain domain show: everything about one domain.
#include <json/value.h>

#include "lib-domain/insight/domain_counts.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/lookup.h"

namespace mdomain {
namespace {

std::string WriteCount(const Json::Value& count) {
  return count.isNull() ? "cannot be read" : count.asString();
}

void Show(Call& call) {
  const Domains domains;
  const KnownDomain& domain = domains.Find(call.Text("DOMAIN"));
  Json::Value record = DomainJson(domain);
  const DomainCounts counts = MDOMAIN::INSIGHT::CountIn(domain.idx);
  record["groups"] = Json::UInt64(counts.groups);
  record["collisions"] = Json::UInt64(counts.collisions);
  record["entries"] = Json::UInt64(counts.entries);
  record["copies"] = Json::UInt64(counts.copies);
  // Null when the list cannot be read.
  record["disclaimers"] =
      counts.disclaimers ? Json::Value(Json::UInt64(*counts.disclaimers)) : Json::Value();
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
