// What a process changes in its databases, row by row: for a plan of a change, and to take one
// back.
//
// For the sources of this project only; it is not installed.
#ifndef PLATFORM_CHANGE_RECORD_H
#define PLATFORM_CHANGE_RECORD_H

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/export.h"

struct sqlite3;

namespace korvmailserver {

// A value as SQLite has it.
struct SqlValue {
  enum class Type { kNull, kInteger, kReal, kText, kBlob };

  Type type = Type::kNull;
  long long integer = 0;
  double real = 0;
  std::string bytes;  // of a text or a blob

  bool operator==(const SqlValue& other) const {
    return type == other.type && integer == other.integer && real == other.real &&
           bytes == other.bytes;
  }
};
using SqlRow = std::vector<SqlValue>;  // without values: there is no such row

struct RowChange {
  long long rowid = 0;
  SqlRow before;
  SqlRow after;
};

struct TableChange {
  std::string path;  // of the database, as SQLite knows it: absolute, links resolved
  std::string table;
  std::vector<std::string> columns;
  std::vector<RowChange> rows;  // ascending by rowid; both sides differ
};

// Watches every connection of this project's libraries and tools, whenever it was opened, and keeps
// each row as it was before its first change. What is rolled back, or changed and changed back, is
// no change. One lives at a time in a thread, and it sees the changes of that thread.
class MDOMAIN_EXPORT ChangeRecord {
 public:
  using Watches = std::function<bool(const std::string& path, const std::string& table)>;
  using Listener = std::function<void(const std::vector<TableChange>& kept, bool is_whole)>;

  // Of the tables for which `watches` is true; attached databases are not watched. Once more than
  // `most` rows were touched nothing is kept any more.
  ChangeRecord(Watches watches, size_t most);
  ~ChangeRecord();
  ChangeRecord(const ChangeRecord&) = delete;
  ChangeRecord& operator=(const ChangeRecord&) = delete;

  // Before a transaction is committed `use` gets the rows that were kept since the last call, as
  // they were before, and whether everything was kept. It must not throw.
  void TellBeforeCommits(Listener use) { before_commit_ = std::move(use); }

  // Forgets what was kept.
  void StartAnew() {
    tables_.clear();
    untold_.clear();
  }
  // Whether everything was kept.
  bool IsWhole() const { return is_whole_; }
  // Adds what differs from before, ascending by path and table: what is committed counts. False
  // with one log line when a file cannot be read.
  bool List(std::vector<TableChange>& changes) const;

 private:
  friend struct ChangeRecordHook;

  using Rows = std::map<long long, SqlRow>;  // by rowid, as they were
  using Table = std::pair<std::string, std::string>;

  Rows* _Watched(const char* path, const char* table);
  void _Keep(const Table& table, Rows& rows, long long rowid, SqlRow row);
  void _TellKept();

  Watches watches_;
  size_t room_;
  bool is_whole_ = true;
  std::map<Table, std::optional<Rows>> tables_;
  Listener before_commit_;
  std::vector<TableChange> untold_;
  bool is_told_whole_ = true;
};

// Of rows as they were: adds the columns and the rows as they are now, and leaves out what does not
// differ. False with one log line when a file cannot be read.
MDOMAIN_EXPORT bool CompleteChanges(std::vector<TableChange>& changes);

enum class RowSide { kBefore, kAfter };

// Brings the rows of tables of one database to one side of the change, in a transaction that the
// caller opened on `db` without foreign keys, and rolls back unless all went well. A row that is on
// neither side is an obstacle: it is told, "TABLE: COLUMN = VALUE, ...", and nothing more is
// written. What is in the columns `derived` follows from other rows: a row may differ there from
// both sides. A row that is on its side already stays, so the same call may be made again. SQLite's
// code of the first failure.
MDOMAIN_EXPORT int ApplyChanges(sqlite3* db, const std::vector<TableChange>& changes, RowSide side,
                                const std::set<std::string>& derived,
                                std::vector<std::string>& obstacles);

}  // namespace korvmailserver

#endif  // PLATFORM_CHANGE_RECORD_H
