// Whether accounts still exist, and why one has no address.
#ifndef LIB_DOMAIN_INSIGHT_ACCOUNT_STATE_H
#define LIB_DOMAIN_INSIGHT_ACCOUNT_STATE_H

#include <string>
#include <vector>

#include "lib-domain/insight/reading.h"

namespace MDOMAIN::INSIGHT {

// What keeps a mirrored account from getting mail: it is gone from the account system, or that
// does not tell. Empty where it is there, and on a machine that pulls, which mirrors none.
std::string WhatBecameOf(const std::string& full_name);

// Sentences about accounts of this name, which have no such alias in the domain: known and not in
// it, taken out, in it under other aliases, not mirrored yet, or nobody. At least one.
std::vector<std::string> WhyNobody(const KnownDomain& domain, const std::string& name);

// The aliases that the domain's pattern gives the account of this short name now, joined with ", ";
// empty where that cannot be told.
std::string AliasByPattern(int domain_idx, const std::string& short_name);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_ACCOUNT_STATE_H
