#include "lib-domain/base/suggestion.h"

#include <algorithm>

#include "lib-domain/base/text.h"

namespace MDOMAIN::BASE {
namespace {

// Letters to change, add, remove or swap with their neighbour; `most` + 1 for any more.
size_t Distance(const std::string& a, const std::string& b, size_t most) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > most) {
    return most + 1;
  }
  std::vector<size_t> cells((a.size() + 1) * (b.size() + 1));
  const auto cost = [&](size_t i, size_t j) -> size_t& { return cells[i * (b.size() + 1) + j]; };
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        cost(i, j) = i + j;
        continue;
      }
      cost(i, j) = std::min({cost(i - 1, j) + 1, cost(i, j - 1) + 1,
                             cost(i - 1, j - 1) + (a[i - 1] == b[j - 1] ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        cost(i, j) = std::min(cost(i, j), cost(i - 2, j - 2) + 1);
      }
    }
  }
  return cost(a.size(), b.size());
}

}  // namespace

std::string DidYouMean(const std::string& typed, const std::vector<std::string>& known) {
  constexpr size_t kLettersForAnError = 3;
  constexpr size_t kMostErrors = 2;
  const std::string wanted = ToLowerAscii(typed);
  size_t least = std::min(kMostErrors, wanted.size() / kLettersForAnError) + 1;
  std::string nearest;
  for (const std::string& name : known) {
    const std::string candidate = ToLowerAscii(name);
    const bool begins = wanted.size() >= 2 && candidate.rfind(wanted, 0) == 0;
    const size_t distance = begins ? 1 : Distance(wanted, candidate, least);
    if (distance < least) {
      least = distance;
      nearest = name;
    }
  }
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

}  // namespace MDOMAIN::BASE
