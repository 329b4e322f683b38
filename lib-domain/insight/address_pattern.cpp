#include "lib-domain/insight/address_pattern.h"

#include "lib-domain/base/domain_name.h"
#include "lib-domain/base/text.h"

namespace MDOMAIN::INSIGHT {

std::string ComparedForm(const std::string& address) {
  const size_t at = address.rfind('@');
  return at == std::string::npos ? BASE::ToLowerAscii(address)
                                 : BASE::ToLowerAscii(address.substr(0, at + 1)) +
                                       BASE::AsciiForm(address.substr(at + 1));
}

// Of the stars only the last one is tried anew: the first place where the
// text before it fits leaves the most for what follows.
bool Fits(const std::string& pattern, const std::string& text) {
  size_t in_pattern = 0;
  size_t star = std::string::npos;
  size_t behind_star = 0;
  for (size_t i = 0; i < text.size();) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
      star = in_pattern++;
      behind_star = i;
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == text[i]) {
      ++in_pattern;
      ++i;
    } else if (star != std::string::npos) {
      in_pattern = star + 1;
      i = ++behind_star;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in_pattern) == std::string::npos;
}

}  // namespace MDOMAIN::INSIGHT
