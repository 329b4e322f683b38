// A look at the rules of blind copies through the connection that is kept for such looks.
#ifndef LIB_DOMAIN_API_BCC_KEPT_RULES_H
#define LIB_DOMAIN_API_BCC_KEPT_RULES_H

namespace MDOMAIN::CONTROL::INTERNAL {

// Whether there is nothing to delete. False also where the short way is not open: whoever deletes
// waits, and says what is wrong.
bool HasSurelyNoRules(int domain_idx);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_KEPT_RULES_H
