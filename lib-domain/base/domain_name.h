// When two spellings are one domain name.
#ifndef LIB_DOMAIN_BASE_DOMAIN_NAME_H
#define LIB_DOMAIN_BASE_DOMAIN_NAME_H

#include <string>

namespace MDOMAIN::BASE {

// The name in punycode and lower case: equal for two spellings of one name. A text that is no
// domain name is only made lower case.
std::string AsciiForm(const std::string& name);

// True when both spell the same domain name.
bool SameDomainName(const std::string& a, const std::string& b);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_DOMAIN_NAME_H
