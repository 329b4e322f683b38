#include "lib-domain/base/sentence.h"

#include <algorithm>

#include "lib-domain/base/text.h"

namespace MDOMAIN::BASE {

std::string FirstOf(const std::vector<std::string>& texts, const std::string& separator) {
  return FirstOf(texts, texts.size(), separator);
}

std::string FirstOf(const std::vector<std::string>& first, std::size_t count,
                    const std::string& separator) {
  const std::size_t shown = std::min(first.size(), kFirst);
  const std::vector<std::string> some(first.begin(), first.begin() + static_cast<long>(shown));
  const std::string text = Join(some, separator);
  return shown == count ? text : text + " and " + std::to_string(count - shown) + " more";
}

std::string Counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace MDOMAIN::BASE
