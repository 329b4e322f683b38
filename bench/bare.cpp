#include "bench/bare.h"

#include <algorithm>
#include <filesystem>

#include "bench/company.h"

namespace bench {

namespace {

constexpr const char* kTableNames =
    "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%' AND sql NOT "
    "LIKE '%WITHOUT ROWID' ORDER BY "
    "name "
    "NOT IN ('user_table', 'group_table', 'domain_table'), rowid";

Cell Value(sqlite3_stmt* statement, int column) {
  Cell cell;
  cell.type = sqlite3_column_type(statement, column);
  if (cell.type == SQLITE_INTEGER) {
    cell.number = sqlite3_column_int64(statement, column);
  } else if (cell.type != SQLITE_NULL) {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    cell.bytes.assign(bytes == nullptr ? "" : bytes,
                      static_cast<size_t>(sqlite3_column_bytes(statement, column)));
  }
  return cell;
}

void Bind(sqlite3_stmt* statement, int parameter, const Cell& cell) {
  const int size = static_cast<int>(cell.bytes.size());
  switch (cell.type) {
    case SQLITE_NULL:
      sqlite3_bind_null(statement, parameter);
      break;
    case SQLITE_INTEGER:
      sqlite3_bind_int64(statement, parameter, cell.number);
      break;
    case SQLITE_BLOB:
      sqlite3_bind_blob(statement, parameter, cell.bytes.data(), size, SQLITE_STATIC);
      break;
    default:
      sqlite3_bind_text(statement, parameter, cell.bytes.data(), size, SQLITE_STATIC);
  }
}

constexpr const char* kUnindexedReferences =
    "SELECT DISTINCT t.name, f.\"from\" FROM sqlite_master AS t, pragma_foreign_key_list(t.name) "
    "AS f "
    "WHERE t.type = 'table' AND NOT EXISTS (SELECT 1 FROM pragma_index_list(t.name) AS l, "
    "pragma_index_info(l.name) AS i WHERE i.seqno = 0 AND i.name = f.\"from\")";

}  // namespace

Cells Table::Row(size_t i) const {
  const auto first = cells.begin() + static_cast<std::ptrdiff_t>(i * columns.size());
  return {first, first + static_cast<std::ptrdiff_t>(columns.size())};
}

Bare::Bare(const std::string& path) {
  if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) {
    Stop(path + " cannot be opened");
  }
  Run("PRAGMA foreign_keys = on; PRAGMA cache_size = -65536");
}

Bare::~Bare() {
  for (const auto& [sql, statement] : prepared_) {
    sqlite3_finalize(statement);
  }
  sqlite3_close(db_);
}

void Bare::Run(const std::string& sql) {
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    Stop(sql + ": " + sqlite3_errmsg(db_));
  }
}

sqlite3_stmt* Bare::_PrepareOnce(const std::string& sql) {
  sqlite3_stmt*& statement = prepared_[sql];
  if (statement == nullptr &&
      sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    Stop(sql + ": " + sqlite3_errmsg(db_));
  }
  return statement;
}

std::vector<std::string> Bare::_ColumnNames(const std::string& sql) {
  sqlite3_stmt* statement = _PrepareOnce(sql);
  std::vector<std::string> names(static_cast<size_t>(sqlite3_column_count(statement)));
  for (size_t i = 0; i < names.size(); ++i) {
    names[i] = sqlite3_column_name(statement, static_cast<int>(i));
  }
  return names;
}

size_t Bare::Select(const std::string& sql, const Cells& values, Cells& cells) {
  sqlite3_stmt* statement = _PrepareOnce(sql);
  for (size_t i = 0; i < values.size(); ++i) {
    Bind(statement, static_cast<int>(i) + 1, values[i]);
  }
  size_t rows = 0;
  const int columns = sqlite3_column_count(statement);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    ++rows;
    for (int i = 0; i < columns; ++i) {
      cells.push_back(Value(statement, i));
    }
  }
  if (sqlite3_reset(statement) != SQLITE_OK) {
    Stop(sql + ": " + sqlite3_errmsg(db_));
  }
  return rows;
}

Cells Bare::Select(const std::string& sql, const Cells& values) {
  Cells cells;
  Select(sql, values, cells);
  return cells;
}

void Bare::IndexReferences() {
  const Cells found = Select(kUnindexedReferences);
  for (size_t i = 0; i < found.size(); i += 2) {
    const std::string& table = found[i].bytes;
    const std::string& column = found[i + 1].bytes;
    std::string sql = "CREATE INDEX floor_";
    sql.append(table).append("_").append(column).append(" ON ");
    sql.append(table).append("(").append(column).append(")");
    Run(sql);
  }
}

std::vector<Table> Bare::ReadTables() {
  std::vector<Table> tables;
  Run("BEGIN");
  for (const Cell& name : Select(kTableNames)) {
    Table table;
    table.name = name.bytes;
    // A table whose first column is its row id gives it twice here.
    std::string sql = "SELECT rowid, * FROM " + name.bytes + " ORDER BY 1";
    table.columns = _ColumnNames(sql);
    if (table.columns[0] == table.columns[1]) {
      sql = "SELECT * FROM " + name.bytes + " ORDER BY 1";
      table.columns = _ColumnNames(sql);
    }
    Select(sql, {}, table.cells);
    tables.push_back(std::move(table));
  }
  Run("COMMIT");
  return tables;
}

Difference::Difference(const std::vector<Table>& before, const std::vector<Table>& after) {
  for (const Table& now : after) {
    const auto then = std::find_if(before.begin(), before.end(),
                                   [&](const Table& table) { return table.name == now.name; });
    _Compare(then == before.end() ? Table{now.name, now.columns, {}} : *then, now);
  }
}

void Difference::_Compare(const Table& before, const Table& after) {
  Change change;
  size_t then = 0;
  size_t now = 0;
  while (then < before.Rows() || now < after.Rows()) {
    const Cells old_row = then < before.Rows() ? before.Row(then) : Cells();
    const Cells new_row = now < after.Rows() ? after.Row(now) : Cells();
    if (new_row.empty() || (!old_row.empty() && old_row[0].number < new_row[0].number)) {
      change.removed.push_back(old_row);
      ++then;
    } else if (old_row.empty() || new_row[0].number < old_row[0].number) {
      change.added.push_back(new_row);
      ++now;
    } else {
      if (!(old_row == new_row)) {
        change.changed.emplace_back(old_row, new_row);
      }
      ++then;
      ++now;
    }
  }
  if (change.removed.empty() && change.added.empty() && change.changed.empty()) {
    return;
  }
  std::string names;
  std::string marks;
  std::string assignments;
  for (size_t i = 0; i < after.columns.size(); ++i) {
    const std::string mark = "?" + std::to_string(i + 1);
    const std::string separator = i == 0 ? "" : ",";
    names += separator + after.columns[i];
    marks += separator + mark;
    if (i > 0) {
      assignments += (i == 1 ? "" : ",") + after.columns[i] + "=" + mark;
    }
  }
  const std::string where = " WHERE " + after.columns[0] + "=?1";
  change.insert = "INSERT INTO " + after.name + "(" + names + ") VALUES(" + marks + ")";
  change.update = "UPDATE " + after.name + " SET " + assignments + where;
  change.remove = "DELETE FROM " + after.name + where;
  changes_.push_back(std::move(change));
}

void Difference::Write(Bare& bare, bool backwards) const {
  bare.Run("BEGIN IMMEDIATE");
  // Children go before their parents and come after them.
  for (auto change = changes_.rbegin(); change != changes_.rend(); ++change) {
    for (const Cells& row : backwards ? change->added : change->removed) {
      bare.Write(change->remove, {row[0]});
    }
  }
  for (const Change& change : changes_) {
    for (const Cells& row : backwards ? change.removed : change.added) {
      bare.Write(change.insert, row);
    }
    for (const auto& [before, after] : change.changed) {
      bare.Write(change.update, backwards ? before : after);
    }
  }
  bare.Run("COMMIT");
}

State ReadState(const std::string& folder) {
  State state;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".db") {
      state[entry.path().filename()] = Bare(entry.path()).ReadTables();
    }
  }
  return state;
}

}  // namespace bench
