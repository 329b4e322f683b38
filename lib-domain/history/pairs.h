// Rows of a change, paired by what they stand for: a number that is used again says nothing.
#ifndef LIB_DOMAIN_HISTORY_PAIRS_H
#define LIB_DOMAIN_HISTORY_PAIRS_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lib-domain/history/model_changes.h"

namespace MDOMAIN::HISTORY {

// The same change; rows of a table that has a key of its own are those of one key. What was only
// stored again is left out.
Changes Paired(const Changes& changes);

// A value before and after; none where there was or is no such row.
struct Sides {
  std::optional<std::string> before;
  std::optional<std::string> after;

  std::string Before() const { return before.value_or(""); }
  std::string After() const { return after.value_or(""); }
  const char* Change() const { return !before ? "added" : !after ? "removed" : "changed"; }
};

// The values of a column of a table's rows by their key columns, as texts.
std::map<std::vector<std::string>, Sides> SidesOf(const Changes& changes, const char* table,
                                                  const std::vector<std::string>& keys,
                                                  const char* value);

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_PAIRS_H
