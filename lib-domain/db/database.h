// A store's way to the domain database: one query helper and one way to write.
//
// Every operation fails without a handler. Each takes the place it was called from, so that its one
// error line names the store and the line of its call; SQLite's reason stands in a line before.
#ifndef LIB_DOMAIN_DB_DATABASE_H
#define LIB_DOMAIN_DB_DATABASE_H

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "lib-domain/db/domain_names.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/sql.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB {

class DomainDBFilter;

namespace INTERNAL {

class StatementBatch;

// A place in a source; as a default argument, the place of the call.
struct SourceHere {
  const char* file;
  int line;
  static constexpr SourceHere Now(const char* file = __builtin_FILE(),
                                  int line = __builtin_LINE()) {
    return {file, line};
  }
};

using Cells = korvmailserver::Statement;  // standing on a row

// What a column holds. Read gives its cell as that, or false with `value` untouched and one line:
// "Failed to stoi [%s]", "failed to convert %s to uid", "failed to convert %s to gid".
struct Int {
  using Value = int;
  static bool Read(const std::string& cell, int& value, SourceHere here);
  static bool Read(const Cells& row, int column, int& value, SourceHere here);
};
struct Uid {
  using Value = unsigned int;
  static bool Read(const Cells& row, int column, unsigned int& uid, SourceHere here);
};
struct Gid {
  using Value = unsigned int;
  static bool Read(const Cells& row, int column, unsigned int& gid, SourceHere here);
};
struct Text {
  using Value = std::string;
  static bool Read(const Cells& row, int column, std::string& text, SourceHere /*here*/) {
    text = row.Text(column);
    return true;
  }
};
// Whatever is stored, as a number; IsUid tells whether it is a uid.
struct Number {
  using Value = sqlite3_int64;
  static bool Read(const Cells& row, int column, sqlite3_int64& number, SourceHere /*here*/) {
    number = row.Int64(column);
    return true;
  }
};
inline bool IsUid(sqlite3_int64 number) {
  return number >= 0 && number <= std::numeric_limits<unsigned int>::max();
}
// Whatever stands there is not read.
struct Skipped {
  using Value = std::nullptr_t;
  static bool Read(const Cells& /*row*/, int /*column*/, Value& /*value*/, SourceHere /*here*/) {
    return true;
  }
};
// Everything but "0" is true, the empty text of NULL included.
struct Flag {
  using Value = bool;
  static bool Read(const Cells& row, int column, bool& flag, SourceHere /*here*/) {
    flag = row.IsInteger(column) ? row.Int64(column) != 0 : row.Text(column) != "0";
    return true;
  }
};

// The number of a cell that holds an id as the stores write it; false for what they take for one in
// other forms.
template <typename Id>
bool ReadPlainId(const Cells& row, int column, Id& id) {
  const sqlite3_int64 number = row.IsInteger(column) ? row.Int64(column) : -1;
  id = static_cast<Id>(number);
  return number >= 0 && number < std::numeric_limits<Id>::max();
}

// The columns of a row, from the first on; a row may have more.
template <typename... Kinds>
struct Columns {
  static constexpr int kCount = sizeof...(Kinds);

  // Calls `use` with the values in column order. At the first cell that is not of its kind: false,
  // and `use` is not called.
  template <typename Use>
  static bool Read(const Cells& row, const Use& use, SourceHere here) {
    std::tuple<typename Kinds::Value...> values;
    int column = 0;
    const auto read = [&](auto&... value) {
      return (Kinds::Read(row, column++, value, here) && ...);
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

  // Runs a query and calls `use` with the values of each row's columns, row by row: it must not
  // change the database. False, with what was read before handed out, at the first bad cell, and
  // when the query fails ("failed to ExecSelectCmd"): the database refuses, the rows are narrower,
  // or the text is "", which FormatStatement gives for one that is too long.
  template <typename RowColumns, typename Use>
  bool Query(const Sql& sql, const Use& use, SourceHere here = SourceHere::Now()) const {
    return Select(
        sql, RowColumns::kCount,
        [&use, here](const Cells& row) { return RowColumns::Read(row, use, here); }, here);
  }
  // Query, until `use` answers false, which is no failure.
  template <typename RowColumns, typename Use>
  bool QueryUntil(const Sql& sql, const Use& use, SourceHere here = SourceHere::Now()) const {
    bool is_enough = false;
    const auto use_row = [&](const Cells& row) {
      const auto keep = [&](auto&&... values) {
        is_enough = !use(std::forward<decltype(values)>(values)...);
      };
      return RowColumns::Read(row, keep, here) && !is_enough;
    };
    return Select(sql, RowColumns::kCount, use_row, here) || is_enough;
  }
  // Query, a record at the end of `records` for each row, made of the columns' values.
  template <typename RowColumns, typename Record>
  bool Append(const Sql& sql, std::vector<Record>& records,
              SourceHere here = SourceHere::Now()) const {
    return Query<RowColumns>(
        sql,
        [&records](auto&&... values) {
          records.emplace_back(std::forward<decltype(values)>(values)...);
        },
        here);
  }
  // Calls `use` with each row of a kept query. False, with nothing logged, when the query fails or
  // would have to wait for a lock, with what was read before handed out: for a faster road beside
  // one that waits and tells what is wrong.
  bool TryForEachRow(const Sql& sql, const std::function<void(const Cells& row)>& use) const;
  // One column, from 0, of the last row; untouched when there is no row.
  bool GetText(const Sql& sql, int column, std::string& text,
               SourceHere here = SourceHere::Now()) const;
  // The answer of a "SELECT EXISTS" query.
  bool GetExists(const Sql& sql, bool& exists, SourceHere here = SourceHere::Now()) const;
  // The same, of a constant question about sqlite_master.
  bool GetExistsInSchema(const char* sql, bool& exists, SourceHere here = SourceHere::Now()) const;
  // The names that `read` gives, or gave since when they are the stored ones. False, with nothing
  // logged, where that cannot be told, as in a transaction that writes, or they cannot be read.
  bool ShareNames(const std::function<bool(DomainNames&)>& read,
                  std::shared_ptr<const DomainNames>& names) const;
  // The number that `read` gives, or gave of this since the last change.
  bool RememberCount(const std::string& what, const std::function<bool(int&)>& read,
                     int& count) const;
  // The same of a list. At the first time since a change `has_list` is false, and nothing is read,
  // unless it was true before: whoever asks once needs no more than the page.
  using UidReader = std::function<bool(std::vector<unsigned int>&)>;
  bool RememberList(const std::string& what, const UidReader& read, std::vector<unsigned int>& uids,
                    bool& has_list) const;
  // How many a list has that was read since the last change. False where none was.
  bool GetRememberedSize(const std::string& what, int& size) const;
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
  // The same, with nothing logged: for a faster road beside one that tells what is wrong.
  bool TryRun(const StatementBatch& batch) const;

 private:
  // `use` is called with each row, which has at least `columns`, until it gives false.
  bool Select(const Sql& sql, int columns, const std::function<bool(const Cells&)>& use,
              SourceHere here) const;

  DomainDBHandler* handler_;
  int status_;
};

}  // namespace INTERNAL
}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DATABASE_H
