// Which domains a change is about, and the part of it that is about some of them.
#ifndef LIB_DOMAIN_HISTORY_DOMAIN_PART_H
#define LIB_DOMAIN_HISTORY_DOMAIN_PART_H

#include <set>

#include "lib-domain/history/model_changes.h"

namespace MDOMAIN::HISTORY {

// Stands for what belongs to no domain: accounts, groups, settings of the host.
constexpr int kHost = 0;

// The indexes of the domains whose rows, keys and files were changed, kHost for others. What
// follows from the disclaimers of a domain is not counted.
std::set<int> DomainsOf(const Changes& changes);

// Without what is about others and about the host.
Changes PartOf(const Changes& changes, const std::set<int>& domains);

// The indexes of domains that were created or deleted: what was done under them before was done to
// another domain.
std::set<int> ReplacedDomains(const Changes& changes);

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_DOMAIN_PART_H
