// Patterns of addresses in rules of disclaimers.
#ifndef LIB_DOMAIN_INSIGHT_ADDRESS_PATTERN_H
#define LIB_DOMAIN_INSIGHT_ADDRESS_PATTERN_H

#include <string>

namespace MDOMAIN::INSIGHT {

// An address or a pattern in the form in which the two are compared.
std::string ComparedForm(const std::string& address);
// Both in that form; "*" stands for any text.
bool Fits(const std::string& pattern, const std::string& text);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_ADDRESS_PATTERN_H
