// Domain names as an administrator types them: the form in which they are compared and the spelling
// in which they are stored.
#ifndef TOOLS_MDOMAIN_DOMAIN_NAME_H
#define TOOLS_MDOMAIN_DOMAIN_NAME_H

#include <string>
#include <vector>

#include "lib-domain/base/domain_name.h"

namespace mdomain {

using MDOMAIN::BASE::AsciiForm;
using MDOMAIN::BASE::SameDomainName;

// A typed domain name in a spelling that can be stored: "Österreich.example" becomes
// "österreich.example". What is a domain name as it stands, or is none at all, is left as it is.
std::string StorableName(const std::string& typed);

// Whether a name in that spelling is a valid domain name. Logs nothing.
bool IsDomainName(const std::string& name);

// StorableName of each; refuses the first that is no valid domain name. The API drops invalid
// additional names with a warning; somebody who typed one expects to be told that it was not taken.
std::vector<std::string> StorableNames(const std::vector<std::string>& typed);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOMAIN_NAME_H
