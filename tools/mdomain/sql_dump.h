// The rows of some tables in an SQL dump: what mysqldump, mariadb-dump, pg_dump (COPY or INSERT),
// phpMyAdmin and the sqlite3 shell's .dump write.
#ifndef TOOLS_MDOMAIN_SQL_DUMP_H
#define TOOLS_MDOMAIN_SQL_DUMP_H

#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace mdomain {

struct SqlRow {
  size_t line;                                     // where it begins, from 1
  std::vector<std::optional<std::string>> values;  // one per column; none for NULL
};

struct SqlTable {
  std::vector<std::string> columns;  // in lower case
  std::vector<SqlRow> rows;
};

// What is wrong with a dump, and in which line.
class BadSqlDump : public std::runtime_error {
 public:
  BadSqlDump(size_t line, const std::string& what)
      : std::runtime_error("line " + std::to_string(line) + ": " + what) {}
};

// Those of the tables, by name without a schema, that the dump makes or fills. Throws BadSqlDump
// for a dump that is cut short, holds one of them twice, or a row of them that is no list of plain
// values for known columns. Nothing is run: other statements are passed over.
std::map<std::string, SqlTable> ReadSqlDump(std::string_view text,
                                            const std::set<std::string>& tables);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SQL_DUMP_H
