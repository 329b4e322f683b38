// Bare SQLite: connections with prepared statements and nothing else, and the rows that an
// operation changed, to be written again by such statements. Everything here stops the program on
// an error.
#ifndef BENCH_BARE_H
#define BENCH_BARE_H

#include <sqlite3.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace bench {

struct Cell {
  int type = SQLITE_NULL;
  sqlite3_int64 number = 0;
  std::string bytes;

  Cell() = default;
  Cell(sqlite3_int64 value) : type(SQLITE_INTEGER), number(value) {}     // NOLINT
  Cell(int value) : Cell(sqlite3_int64{value}) {}                        // NOLINT
  Cell(unsigned int value) : Cell(sqlite3_int64{value}) {}               // NOLINT
  Cell(std::string text) : type(SQLITE_TEXT), bytes(std::move(text)) {}  // NOLINT
  Cell(const char* text) : Cell(std::string(text)) {}                    // NOLINT
  bool operator==(const Cell& other) const {
    return type == other.type && number == other.number && bytes == other.bytes;
  }
};
using Cells = std::vector<Cell>;

// All rows of a table, one after the other, ordered by their first column, which is the row id.
struct Table {
  std::string name;
  std::vector<std::string> columns;
  Cells cells;

  size_t Rows() const { return columns.empty() ? 0 : cells.size() / columns.size(); }
  Cells Row(size_t i) const;
};

class Bare {
 public:
  explicit Bare(const std::string& path);
  ~Bare();
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  void Run(const std::string& sql);
  // Each text is prepared once. Appends the cells of all rows, and gives their number.
  size_t Select(const std::string& sql, const Cells& values, Cells& cells);
  Cells Select(const std::string& sql, const Cells& values = {});
  void Write(const std::string& sql, const Cells& values) { Select(sql, values, none_); }
  // Where rows refer to a parent by a column that no index begins with, each removal of a parent
  // reads the whole table: these columns get one.
  void IndexReferences();
  // Every table, parents before those that refer to them. In one transaction.
  std::vector<Table> ReadTables();

 private:
  sqlite3_stmt* _PrepareOnce(const std::string& sql);
  std::vector<std::string> _ColumnNames(const std::string& sql);

  sqlite3* db_ = nullptr;
  std::map<std::string, sqlite3_stmt*> prepared_;
  Cells none_;
};

// What changed in one database: for each table the rows before and after that differ.
class Difference {
 public:
  Difference(const std::vector<Table>& before, const std::vector<Table>& after);
  bool IsEmpty() const { return changes_.empty(); }
  // The rows are written as one transaction; backwards, those of before.
  void Write(Bare& bare, bool backwards = false) const;

 private:
  struct Change {
    std::string insert, update, remove;
    std::vector<Cells> removed, added;
    std::vector<std::pair<Cells, Cells>> changed;
  };
  void _Compare(const Table& before, const Table& after);

  std::vector<Change> changes_;
};

// The databases of a folder, by file name.
using State = std::map<std::string, std::vector<Table>>;
State ReadState(const std::string& folder);

}  // namespace bench

#endif  // BENCH_BARE_H
