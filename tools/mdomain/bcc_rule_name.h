// When two names of blind-copy rules mean the same address, account or domain.
#ifndef TOOLS_MDOMAIN_BCC_RULE_NAME_H
#define TOOLS_MDOMAIN_BCC_RULE_NAME_H

#include <string>

namespace mdomain {

// The domain part of an address, or the whole text for a domain.
std::string DomainPart(const std::string& name);

// Whether two names of rules of a type mean the same, whatever their spelling. An account may stand
// with or without its directory's part. Names that differ in case alone are one account unless the
// account system has both.
bool SameRuleName(int type, const std::string& a, const std::string& b);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_BCC_RULE_NAME_H
