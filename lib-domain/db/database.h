// A store's way to the domain database: one query helper and one way to write.
//
// Every operation fails without a handler. Each takes the place it was called from, so that its one
// error line names the store and the line of its call; SQLite's reason stands in a line before.
#ifndef LIB_DOMAIN_DB_DATABASE_H
#define LIB_DOMAIN_DB_DATABASE_H

#include <cstddef>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB {

class DomainDBFilter;

namespace INTERNAL {

class StatementBatch;

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

// A place in a source; as a default argument, the place of the call.
struct SourceHere {
  const char* file;
  int line;
  static constexpr SourceHere Now(const char* file = __builtin_FILE(),
                                  int line = __builtin_LINE()) {
    return {file, line};
  }
};

// What a column holds. Read gives its cell as that, or false with `value` untouched and one line:
// "Failed to stoi [%s]", "failed to convert %s to uid", "failed to convert %s to gid".
struct Int {
  using Value = int;
  static bool Read(const std::string& cell, int& value, SourceHere here);
};
struct Uid {
  using Value = unsigned int;
  static bool Read(const std::string& cell, unsigned int& uid, SourceHere here);
};
struct Gid {
  using Value = unsigned int;
  static bool Read(const std::string& cell, unsigned int& gid, SourceHere here);
};
struct Text {
  using Value = std::string;
  static bool Read(std::string& cell, std::string& text, SourceHere /*here*/) {
    text.swap(cell);
    return true;
  }
};
// Everything but "0" is true, the empty text of NULL included.
struct Flag {
  using Value = bool;
  static bool Read(const std::string& cell, bool& flag, SourceHere /*here*/) {
    flag = cell != "0";
    return true;
  }
};

// The columns of a row, from the first on; a row may have more.
template <typename... Kinds>
struct Columns {
  static constexpr size_t kCount = sizeof...(Kinds);

  // Calls `use` with the values in column order. At the first cell that is not of its kind: false,
  // and `use` is not called. Takes the texts out of the row.
  template <typename Use>
  static bool Read(Row& row, const Use& use, SourceHere here) {
    std::tuple<typename Kinds::Value...> values;
    size_t column = 0;
    const auto read = [&](auto&... value) {
      return (Kinds::Read(row[column++], value, here) && ...);
    };
    if (!std::apply(read, values)) {
      return false;
    }
    std::apply(use, std::move(values));
    return true;
  }
};

class Database {
 public:
  // `status` is 0, or -1 where a store got no handler.
  Database(DomainDBHandler* handler, int status) : handler_(handler), status_(status) {}

  // Whether there is a handler, with the file that stands there now (FollowFile); else "Open
  // domainDBHandler cannot open before". Everything below checks this itself: an operation checks
  // first when it does or logs something before.
  bool IsOpen(SourceHere here = SourceHere::Now()) const;

  // Runs a query and calls `use` with the values of each row's columns. False, with what was read
  // before handed out, at the first bad cell, and when there is no result ("failed to
  // ExecSelectCmd"): the database refuses, the rows are narrower, or the text is "", which
  // FormatStatement gives for one that is too long.
  template <typename RowColumns, typename Use>
  bool Query(const std::string& sql, const Use& use, SourceHere here = SourceHere::Now()) const {
    return ReadRows<RowColumns>(
        sql, [](size_t /*rows*/) {}, use, here);
  }
  // Query, a record at the end of `records` for each row, made of the columns' values.
  template <typename RowColumns, typename Record>
  bool Append(const std::string& sql, std::vector<Record>& records,
              SourceHere here = SourceHere::Now()) const {
    return ReadRows<RowColumns>(
        sql, [&records](size_t rows) { records.reserve(records.size() + rows); },
        [&records](auto&&... values) {
          records.emplace_back(std::forward<decltype(values)>(values)...);
        },
        here);
  }
  // One column, from 0, of the last row; untouched when there is no row.
  bool GetText(const std::string& sql, size_t column, std::string& text,
               SourceHere here = SourceHere::Now()) const;
  // The answer of a "SELECT EXISTS" query.
  bool GetExists(const std::string& sql, bool& exists, SourceHere here = SourceHere::Now()) const;
  // What `select` ("count(*)") gives for the filter's rows of a view, whatever the filter's page.
  bool GetCount(const DomainDBFilter& filter, const char* view, const char* select, int& count,
                SourceHere here = SourceHere::Now()) const;
  // The number of rows of a table or view; -1 when it cannot be read, true nevertheless.
  bool GetTableCount(const char* table, int& count, SourceHere here = SourceHere::Now()) const;

  // Runs all statements as one transaction, or none; an empty batch succeeds. False, with the
  // reason (a warning) and `failure` logged, when the database refuses or one of the statements did
  // not fit; then nothing is sent at all.
  bool Run(const StatementBatch& batch, const char* failure,
           SourceHere here = SourceHere::Now()) const;

 private:
  bool Select(const std::string& sql, size_t columns, Rows& rows, SourceHere here) const;

  template <typename RowColumns, typename Prepare, typename Use>
  bool ReadRows(const std::string& sql, const Prepare& prepare, const Use& use,
                SourceHere here) const {
    Rows rows;
    if (!Select(sql, RowColumns::kCount, rows, here)) {
      return false;
    }
    prepare(rows.size());
    for (Row& row : rows) {
      if (!RowColumns::Read(row, use, here)) {
        return false;
      }
    }
    return true;
  }

  DomainDBHandler* handler_;
  int status_;
};

}  // namespace INTERNAL
}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DATABASE_H
