// How a domain is shown.
#ifndef TOOLS_MDOMAIN_DOMAIN_OUTPUT_H
#define TOOLS_MDOMAIN_DOMAIN_OUTPUT_H

#include <json/value.h>

#include <string>
#include <vector>

#include "lib-domain/record/domain.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/output.h"

namespace mdomain {

Json::Value DomainJson(const MDOMAIN::RECORD::Domain& record,
                       const std::vector<std::string>& additional_names);
// Reads the domain's record first.
Json::Value DomainJson(const KnownDomain& domain);
// "id", "name".
Json::Value DomainNameJson(const KnownDomain& domain);
Json::Value DomainNameJson(int idx, const std::string& name);
std::vector<Column> DomainColumns();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOMAIN_OUTPUT_H
