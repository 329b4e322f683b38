// How a domain is shown, and what typed domain names become before they are stored.
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

// A typed domain name in a spelling that can be stored: "Österreich.example" becomes
// "österreich.example". What is a domain name as it stands, or is none at all, is left as it is.
std::string StorableName(const std::string& typed);

// StorableName of each; refuses the first that is no valid domain name. The API drops invalid
// additional names with a warning; somebody who typed one expects to be told that it was not taken.
std::vector<std::string> StorableNames(const std::vector<std::string>& typed);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOMAIN_OUTPUT_H
