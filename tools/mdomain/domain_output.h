// How a domain is shown, and the check that every list of typed domain names passes.
#ifndef TOOLS_MDOMAIN_DOMAIN_OUTPUT_H
#define TOOLS_MDOMAIN_DOMAIN_OUTPUT_H

#include <json/value.h>

#include <string>
#include <vector>

#include "tools/mdomain/lookup.h"
#include "tools/mdomain/output.h"

namespace mdomain {

Json::Value DomainJson(const KnownDomain& domain);
std::vector<Column> DomainColumns();

// Refuses the first name that is no valid domain name. The API drops invalid additional names with
// a warning; somebody who typed one expects to be told that it was not taken.
void RequireDomainNames(const std::vector<std::string>& names);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOMAIN_OUTPUT_H
