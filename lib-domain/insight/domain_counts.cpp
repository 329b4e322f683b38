#include "lib-domain/insight/domain_counts.h"

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/insight/reading.h"
#include "lib-domain/insight/stored_copies.h"

namespace MDOMAIN::INSIGHT {

mdomain::DomainCounts CountIn(int domain_idx) {
  DB::DomainDBFilter filter("domain_group_view");
  filter.SetDomainIdxs({domain_idx});
  int groups = 0;
  RequireRead(API::DomainGroup().GetDomainGroupsCount(filter, groups), "the groups of the domain");
  std::vector<std::string> collisions;
  RequireRead(API::DomainUser().ListDuplicatedEmail(domain_idx, collisions),
              "the colliding aliases");
  std::vector<::Alias::Entry> entries;
  RequireRead(API::AliasEntry().List(domain_idx, entries), "the addresses with several members");
  mdomain::DomainCounts counts;
  counts.groups = static_cast<size_t>(groups);
  counts.collisions = collisions.size();
  counts.entries = entries.size();
  ForEachCopy(domain_idx, [&counts](const BccInfo& /*rule*/) { ++counts.copies; });
  // A damaged list must not keep all else from being told.
  Json::Value list;
  if (MimeDefang().GetDisclaimerList(domain_idx, list) >= 0) {
    counts.disclaimers = list.size();
  }
  return counts;
}

}  // namespace MDOMAIN::INSIGHT
