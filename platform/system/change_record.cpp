// SQLite calls a hook before it changes a row, on connections that have one. Ours have it from
// their opening on, watched or not: a statement that was compiled without one may pass it over.
#define SQLITE_ENABLE_PREUPDATE_HOOK 1
#include "platform/include/change_record.h"

#include <iterator>
#include <memory>
#include <optional>
#include <set>

#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/include/sqlite.h"

namespace korvmailserver {

namespace {

constexpr int kBusyMilliseconds = 10000;

ChangeRecord*& Current() {
  thread_local ChangeRecord* current = nullptr;
  return current;
}

SqlValue Value(sqlite3_value* from) {
  SqlValue value;
  switch (sqlite3_value_type(from)) {
    case SQLITE_INTEGER:
      value.type = SqlValue::Type::kInteger;
      value.integer = sqlite3_value_int64(from);
      return value;
    case SQLITE_FLOAT:
      value.type = SqlValue::Type::kReal;
      value.real = sqlite3_value_double(from);
      return value;
    case SQLITE_NULL:
      return value;
    default:
      break;
  }
  const bool is_text = sqlite3_value_type(from) == SQLITE_TEXT;
  value.type = is_text ? SqlValue::Type::kText : SqlValue::Type::kBlob;
  const void* bytes = is_text ? sqlite3_value_text(from) : sqlite3_value_blob(from);
  if (bytes != nullptr) {
    value.bytes.assign(static_cast<const char*>(bytes),
                       static_cast<size_t>(sqlite3_value_bytes(from)));
  }
  return value;
}

int Bind(sqlite3_stmt* statement, int parameter, const SqlValue& value) {
  switch (value.type) {
    case SqlValue::Type::kInteger:
      return sqlite3_bind_int64(statement, parameter, value.integer);
    case SqlValue::Type::kReal:
      return sqlite3_bind_double(statement, parameter, value.real);
    case SqlValue::Type::kText:
      return sqlite3_bind_text64(statement, parameter, value.bytes.data(), value.bytes.size(),
                                 SQLITE_TRANSIENT, SQLITE_UTF8);
    case SqlValue::Type::kBlob:
      return sqlite3_bind_blob64(statement, parameter, value.bytes.data(), value.bytes.size(),
                                 SQLITE_TRANSIENT);
    default:
      return sqlite3_bind_null(statement, parameter);
  }
}

// A statement of texts made here; its own failures are told by its result.
class Prepared {
 public:
  Prepared(sqlite3* db, const std::string& sql) {
    result_ = sqlite3_prepare_v2(db, sql.c_str(), -1, &statement_, nullptr);
  }
  ~Prepared() { sqlite3_finalize(statement_); }
  Prepared(const Prepared&) = delete;
  Prepared& operator=(const Prepared&) = delete;

  void Bind(int parameter, const SqlValue& value) {
    _Keep(korvmailserver::Bind(statement_, parameter, value));
  }
  void Bind(int parameter, long long number) {
    _Keep(sqlite3_bind_int64(statement_, parameter, number));
  }
  int Step() { return result_ == SQLITE_OK ? sqlite3_step(statement_) : result_; }
  void Reset() { sqlite3_reset(statement_); }
  sqlite3_stmt* Get() const { return statement_; }

 private:
  void _Keep(int result) { result_ = result_ == SQLITE_OK ? result : result_; }

  sqlite3_stmt* statement_ = nullptr;
  int result_;
};

// Reads one row by its rowid; none leaves `row` empty. SQLite's code, 0 when it was read.
class RowReader {
 public:
  RowReader(sqlite3* db, const std::string& table)
      : select_(db, FormatSql("SELECT * FROM \"%w\" WHERE rowid = ?1", table.c_str())) {}

  int Read(long long rowid, SqlRow& row) {
    row.clear();
    select_.Bind(1, rowid);
    const int result = select_.Step();
    if (result == SQLITE_ROW) {
      for (int i = 0; i < sqlite3_column_count(select_.Get()); ++i) {
        row.push_back(Value(sqlite3_column_value(select_.Get(), i)));
      }
    }
    select_.Reset();
    return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
  }
  std::vector<std::string> Columns() const {
    std::vector<std::string> columns(static_cast<size_t>(sqlite3_column_count(select_.Get())));
    for (size_t i = 0; i < columns.size(); ++i) {
      columns[i] = sqlite3_column_name(select_.Get(), static_cast<int>(i));
    }
    return columns;
  }

 private:
  Prepared select_;
};

std::string Shown(const TableChange& change, const SqlRow& row) {
  std::string text;
  for (size_t i = 0; i < row.size() && i < change.columns.size(); ++i) {
    const SqlValue& value = row[i];
    text += (i == 0 ? "" : ", ") + change.columns[i] + " = " +
            (value.type == SqlValue::Type::kInteger ? std::to_string(value.integer) : value.bytes);
  }
  return change.table + ": " + text;
}

// The rowid is the first parameter and may be NULL, the values stand behind it.
std::string InsertText(const TableChange& change) {
  std::string columns = "rowid";
  std::string values = "?1";
  for (size_t i = 0; i < change.columns.size(); ++i) {
    columns += FormatSql(", \"%w\"", change.columns[i].c_str());
    values += ", ?" + std::to_string(i + 2);
  }
  return FormatSql("INSERT INTO \"%w\"(", change.table.c_str()) + columns + ") VALUES(" + values +
         ")";
}
// The rowid of a row that is equal in what counts.
std::string FindText(const TableChange& change, const std::vector<bool>& counts) {
  std::string where;
  for (size_t i = 0; i < change.columns.size(); ++i) {
    if (counts[i]) {
      where += FormatSql(" AND \"%w\" IS ?%d", change.columns[i].c_str(), static_cast<int>(i) + 2);
    }
  }
  return FormatSql("SELECT rowid FROM \"%w\" WHERE ?1 IS ?1", change.table.c_str()) + where +
         " LIMIT 1";
}

// For each column whether it counts when rows are compared.
std::vector<bool> Counting(const TableChange& change, const std::set<std::string>& derived) {
  std::vector<bool> counts;
  for (const std::string& column : change.columns) {
    counts.push_back(derived.count(column) == 0);
  }
  return counts;
}

// Brings rows of one table to one side of the change. What goes or is replaced goes first, in all
// tables: two rows may have exchanged a value that only one of them can have.
class RowWriter {
 public:
  RowWriter(sqlite3* db, const TableChange& change, RowSide side,
            const std::set<std::string>& derived)
      : change_(change),
        side_(side),
        counts_(Counting(change, derived)),
        reader_(db, change.table),
        find_(db, FindText(change, counts_)),
        insert_(db, InsertText(change)),
        remove_(db, FormatSql("DELETE FROM \"%w\" WHERE rowid = ?1", change.table.c_str())) {}

  int Remove(std::vector<std::string>& obstacles) {
    int result = SQLITE_OK;
    SqlRow present;
    for (const RowChange& row : change_.rows) {
      result = reader_.Read(row.rowid, present);
      result = result == SQLITE_OK ? _Remove(row, present, obstacles) : result;
      if (result != SQLITE_OK) {
        break;
      }
    }
    return result;
  }
  int Write() {
    int result = SQLITE_OK;
    for (auto row = replaced_.begin(); row != replaced_.end() && result == SQLITE_OK; ++row) {
      result = _Run(insert_, row->first, *row->second);
    }
    for (auto row = removed_.begin(); row != removed_.end() && result == SQLITE_OK; ++row) {
      result = _PutBack(**row);
    }
    return result;
  }

 private:
  const SqlRow& _Wanted(const RowChange& row) const {
    return side_ == RowSide::kBefore ? row.before : row.after;
  }
  // Exactly equal rows go before those that are equal in what counts: where only a derived value
  // changed it is put back too, unless somebody has derived it anew.
  int _Remove(const RowChange& row, const SqlRow& present, std::vector<std::string>& obstacles) {
    const SqlRow& wanted = _Wanted(row);
    const SqlRow& expected = side_ == RowSide::kBefore ? row.after : row.before;
    if (present == wanted || (!(present == expected) && _IsAlike(present, wanted))) {
      return SQLITE_OK;
    }
    if (expected.empty()) {
      removed_.push_back(&row);
      return SQLITE_OK;
    }
    std::optional<long long> rowid = row.rowid;
    const int result = _IsAlike(present, expected) ? SQLITE_OK : _Find(expected, rowid);
    if (result != SQLITE_OK || !rowid) {
      obstacles.push_back(Shown(change_, present.empty() ? expected : present));
      return result;
    }
    if (!wanted.empty()) {
      replaced_.push_back({*rowid, &wanted});
    }
    return _Run(remove_, rowid, {});
  }
  // Another row may have the number by now: then this one gets a new one.
  int _PutBack(const RowChange& row) {
    const SqlRow& wanted = _Wanted(row);
    SqlRow present;
    std::optional<long long> equal;
    int result = _Find(wanted, equal);
    if (result == SQLITE_OK && !equal) {
      result = reader_.Read(row.rowid, present);
      const auto rowid = present.empty() ? std::optional<long long>(row.rowid) : std::nullopt;
      result = result == SQLITE_OK ? _Run(insert_, rowid, wanted) : result;
    }
    return result;
  }
  bool _IsAlike(const SqlRow& one, const SqlRow& other) const {
    bool is_alike = one.size() == other.size();
    for (size_t i = 0; i < one.size() && is_alike; ++i) {
      is_alike = one[i] == other[i] || (i < counts_.size() && !counts_[i]);
    }
    return is_alike;
  }
  int _Find(const SqlRow& values, std::optional<long long>& rowid) {
    for (size_t i = 0; i < values.size(); ++i) {
      if (i < counts_.size() && counts_[i]) {
        find_.Bind(static_cast<int>(i) + 2, values[i]);
      }
    }
    rowid.reset();
    const int result = find_.Step();
    if (result == SQLITE_ROW) {
      rowid = sqlite3_column_int64(find_.Get(), 0);
    }
    find_.Reset();
    return result == SQLITE_ROW || result == SQLITE_DONE ? SQLITE_OK : result;
  }
  static int _Run(Prepared& statement, std::optional<long long> rowid, const SqlRow& values) {
    if (rowid) {
      statement.Bind(1, *rowid);
    } else {
      statement.Bind(1, SqlValue());
    }
    for (size_t i = 0; i < values.size(); ++i) {
      statement.Bind(static_cast<int>(i) + 2, values[i]);
    }
    const int result = statement.Step();
    statement.Reset();
    return result == SQLITE_DONE ? SQLITE_OK : result;
  }

  const TableChange& change_;
  RowSide side_;
  std::vector<bool> counts_;
  RowReader reader_;
  Prepared find_;
  Prepared insert_;
  Prepared remove_;
  std::vector<std::pair<long long, const SqlRow*>> replaced_;  // to be written under this rowid
  std::vector<const RowChange*> removed_;  // to be written unless an equal one is there
};

}  // namespace

struct ChangeRecordHook {
  static int OnCommit(void* /*none*/) {
    if (ChangeRecord* record = Current()) {
      record->_TellKept();
    }
    return 0;  // it goes on
  }

  // SQLite hands over the hook's own state, which is none: a connection may outlive the record.
  static void OnChange(void* /*none*/, sqlite3* db, int operation, const char* schema,
                       const char* table, sqlite3_int64 old_rowid, sqlite3_int64 new_rowid) {
    ChangeRecord* record = Current();
    if (record == nullptr || !record->is_whole_) {
      return;
    }
    const char* path = sqlite3_db_filename(db, "main");
    if (path == nullptr || sqlite3_stricmp(schema, "main") != 0) {
      return;
    }
    ChangeRecord::Rows* rows = record->_Watched(path, table);
    if (rows == nullptr) {
      return;
    }
    if (operation != SQLITE_INSERT && rows->count(old_rowid) == 0) {
      record->_Keep({path, table}, *rows, old_rowid, OldRow(db));
    }
    if (operation != SQLITE_DELETE && record->is_whole_ && rows->count(new_rowid) == 0) {
      record->_Keep({path, table}, *rows, new_rowid, SqlRow());
    }
  }

  static SqlRow OldRow(sqlite3* db) {
    SqlRow row;
    for (int i = 0; i < sqlite3_preupdate_count(db); ++i) {
      sqlite3_value* value = nullptr;
      if (sqlite3_preupdate_old(db, i, &value) == SQLITE_OK) {
        row.push_back(Value(value));
      }
    }
    return row;
  }
};

void MakeWatchable(sqlite3* db) {
  sqlite3_preupdate_hook(db, ChangeRecordHook::OnChange, nullptr);
  sqlite3_commit_hook(db, ChangeRecordHook::OnCommit, nullptr);
  if (OtherRoot::IsInForce()) {  // copies that nobody needs after a crash
    sqlite3_exec(db, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
  }
}

ChangeRecord::ChangeRecord(Watches watches, size_t most)
    : watches_(std::move(watches)), room_(most) {
  Current() = this;
}

ChangeRecord::~ChangeRecord() {
  Current() = nullptr;
}

ChangeRecord::Rows* ChangeRecord::_Watched(const char* path, const char* table) {
  const auto [entry, is_new] = tables_.try_emplace({path, table});
  if (is_new && watches_(path, table)) {
    entry->second.emplace();
  }
  return entry->second ? &*entry->second : nullptr;
}

void ChangeRecord::_Keep(const Table& table, Rows& rows, long long rowid, SqlRow row) {
  if (room_ == 0) {
    is_whole_ = false;
    tables_.clear();
    untold_.clear();
    return;
  }
  --room_;
  if (before_commit_) {
    if (untold_.empty() || untold_.back().table != table.second ||
        untold_.back().path != table.first) {
      untold_.push_back({table.first, table.second, {}, {}});
    }
    untold_.back().rows.push_back({rowid, row, {}});
  }
  rows.emplace(rowid, std::move(row));
}

void ChangeRecord::_TellKept() {
  if (before_commit_ && (!untold_.empty() || is_whole_ != is_told_whole_)) {
    is_told_whole_ = is_whole_;
    const std::vector<TableChange> kept = std::move(untold_);
    untold_.clear();  // the listener may use a database, too
    before_commit_(kept, is_whole_);
  }
}

bool ChangeRecord::List(std::vector<TableChange>& changes) const {
  std::vector<TableChange> kept;
  for (const auto& [key, rows] : tables_) {
    if (rows && !rows->empty()) {
      kept.push_back({key.first, key.second, {}, {}});
      for (const auto& [rowid, before] : *rows) {
        kept.back().rows.push_back({rowid, before, {}});
      }
    }
  }
  if (!CompleteChanges(kept)) {
    return false;
  }
  std::move(kept.begin(), kept.end(), std::back_inserter(changes));
  return true;
}

bool CompleteChanges(std::vector<TableChange>& changes) {
  Connection connection;
  std::string open;
  std::vector<TableChange> complete;
  for (TableChange& change : changes) {
    int result = SQLITE_OK;
    if (open != change.path) {
      result = connection.Open(change.path, Connection::Mode::kRead, kBusyMilliseconds);
      open = change.path;
    }
    std::vector<RowChange> different;
    if (result == SQLITE_OK) {
      RowReader reader(connection.Get(), change.table);
      change.columns = reader.Columns();
      for (auto row = change.rows.begin(); row != change.rows.end() && result == SQLITE_OK; ++row) {
        result = reader.Read(row->rowid, row->after);
        if (!(row->before == row->after)) {
          different.push_back(std::move(*row));
        }
      }
    }
    if (result != SQLITE_OK) {
      maillog(kLogError, "Cannot read what was changed in [%s]: %s", change.path.c_str(),
              sqlite3_errstr(result));
      return false;
    }
    if (!different.empty()) {
      change.rows = std::move(different);
      complete.push_back(std::move(change));
    }
  }
  changes = std::move(complete);
  return true;
}

int ApplyChanges(sqlite3* db, const std::vector<TableChange>& changes, RowSide side,
                 const std::set<std::string>& derived, std::vector<std::string>& obstacles) {
  std::vector<std::unique_ptr<RowWriter>> writers;
  int result = SQLITE_OK;
  for (const TableChange& change : changes) {
    writers.push_back(std::make_unique<RowWriter>(db, change, side, derived));
    result = result == SQLITE_OK ? writers.back()->Remove(obstacles) : result;
  }
  for (const auto& writer : writers) {
    result = result == SQLITE_OK && obstacles.empty() ? writer->Write() : result;
  }
  return result;
}

}  // namespace korvmailserver
