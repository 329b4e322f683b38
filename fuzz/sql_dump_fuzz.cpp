// Reads SQL dumps. What is taken for a row has a value for each column, and stands in a line of the
// dump, in order; anything else is refused with a line of the dump.
#include <algorithm>

#include "fuzz/target.h"
#include "tools/mdomain/sql_dump.h"

void fuzz::Run(const std::string& input) {
  const auto lines = static_cast<size_t>(std::count(input.begin(), input.end(), '\n')) + 1;
  try {
    for (const auto& table : mdomain::ReadSqlDump(input, {"domain", "mailbox", "alias"})) {
      size_t last = 1;
      for (const mdomain::SqlRow& row : table.second.rows) {
        Require(row.line >= last && row.line <= lines);
        Require(row.values.size() == table.second.columns.size());
        last = row.line;
      }
    }
  } catch (const mdomain::BadSqlDump& bad) {
    const std::string what = bad.what();
    Require(what.rfind("line ", 0) == 0 && std::stoul(what.substr(5)) <= lines + 1);
  }
}
