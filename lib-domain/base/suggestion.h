// What somebody may have meant who typed a name that there is not.
#ifndef LIB_DOMAIN_BASE_SUGGESTION_H
#define LIB_DOMAIN_BASE_SUGGESTION_H

#include <string>
#include <vector>

namespace MDOMAIN::BASE {

// "; did you mean \"NAME\"?" for the known name that is nearest: it begins with what was typed, or
// a few letters of it are wrong, missing, too many or swapped. Empty when none is near.
std::string DidYouMean(const std::string& typed, const std::vector<std::string>& known);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_SUGGESTION_H
