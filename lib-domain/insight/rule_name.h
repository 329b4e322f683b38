// When two names of blind-copy rules mean the same address, account or domain.
#ifndef LIB_DOMAIN_INSIGHT_RULE_NAME_H
#define LIB_DOMAIN_INSIGHT_RULE_NAME_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

// The domain part of an address, or the whole text for a domain.
MDOMAIN_EXPORT std::string DomainPart(const std::string& name);

// Whether two names of rules of a type mean the same, whatever their spelling. An account may stand
// with or without its directory's part. Names that differ in case alone are one account unless the
// account system has both.
MDOMAIN_EXPORT bool SameRuleName(int type, const std::string& a, const std::string& b);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_RULE_NAME_H
