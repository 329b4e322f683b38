// What explain says of accounts: whether they still exist, and why one has no address.
#ifndef TOOLS_MDOMAIN_EXPLAIN_ACCOUNT_H
#define TOOLS_MDOMAIN_EXPLAIN_ACCOUNT_H

#include <string>
#include <vector>

#include "tools/mdomain/lookup.h"

namespace mdomain {

// What keeps a mirrored account from getting mail: it is gone from the account system, or that
// does not tell. Empty where it is there, and on a machine that pulls, which mirrors none.
std::string WhatBecameOf(const std::string& full_name);

// Sentences about accounts of this name, which have no such alias in the domain: known and not in
// it, taken out, in it under other aliases, not mirrored yet, or nobody. At least one.
std::vector<std::string> WhyNobody(const KnownDomain& domain, const std::string& name);

// "from group books", "from groups books, sales": the groups that give the user a role there.
std::string RoleGivers(int domain_idx, unsigned int uid);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_EXPLAIN_ACCOUNT_H
