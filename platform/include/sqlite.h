// The one way to SQLite: a connection, a statement and a transaction that end with their scopes.
//
// For the sources of this project only; it is not installed. Nothing here throws, but for memory.
// A result is SQLite's code; its text comes from the same object, or from sqlite3_errmsg until the
// next call on the connection.
#ifndef PLATFORM_SQLITE_H
#define PLATFORM_SQLITE_H

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/include/export.h"

namespace korvmailserver {

// Keeps what is wrong with a database file (disk full, may not be written, locked, damaged, no
// database, a table or column that it lacks, input or output error) for LastDatabaseFailure; other
// results are passed over. `db` is the connection that gave the result. It knows its file itself,
// unless opening failed or it works in memory: then `path` says which file was meant.
MDOMAIN_EXPORT void NoteDatabaseFailure(sqlite3* db, int result, const std::string& path = "");
// "database PATH: REASON" of the last failure in this process; empty while there was none. SQLite's
// own texts name no file.
MDOMAIN_EXPORT const std::string& LastDatabaseFailure();
// What fails while one lives is not kept: another attempt follows, which tells what mattered.
class MDOMAIN_EXPORT UnkeptDatabaseFailures {
 public:
  UnkeptDatabaseFailures();
  ~UnkeptDatabaseFailures();
  UnkeptDatabaseFailures(const UnkeptDatabaseFailures&) = delete;
  UnkeptDatabaseFailures& operator=(const UnkeptDatabaseFailures&) = delete;

 private:
  const std::string before_;
};

// For a connection that was just opened: whoever watches changes later (change_record.h) sees those
// that are made on it.
MDOMAIN_EXPORT void MakeWatchable(sqlite3* db);

// An SQL text made by SQLite's own printf: %q doubles single quotes, %Q adds them and writes NULL
// for a null pointer, %w doubles double quotes. Both end at a zero byte, so bind what may hold one.
// The empty string without memory.
inline std::string FormatSqlV(const char* format, va_list arguments) {
  char* made = sqlite3_vmprintf(format, arguments);
  std::string text = made == nullptr ? "" : made;
  sqlite3_free(made);
  return text;
}
inline std::string FormatSql(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = FormatSqlV(format, arguments);
  va_end(arguments);
  return text;
}

// Owns a connection to one file and closes it at the end of its scope. For one thread at a time: it
// is opened without SQLite's lock for threads.
class Connection {
 public:
  enum class Mode { kRead, kWrite, kCreate };  // reading; and writing; and making a missing file

  Connection() = default;
  ~Connection() { Close(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Opens a file, or ":memory:", instead of the one before. A symbolic link is read through, but
  // not written through. Locks of others are waited for `busy_milliseconds`. SQLITE_OK; otherwise
  // the code, its text in Error, and no connection.
  int Open(const std::string& path, Mode mode, int busy_milliseconds) {
    Close();
    if (mode != Mode::kRead && _IsLink(path)) {
      error_ = "it is a symbolic link, which is not followed";
      return SQLITE_CANTOPEN;
    }
    const int result = sqlite3_open_v2(path.c_str(), &db_, _OpenFlags(mode), nullptr);
    if (result != SQLITE_OK) {
      error_ = sqlite3_errmsg(db_);
      NoteDatabaseFailure(db_, result, path);
      Close();
      return result;
    }
    sqlite3_busy_timeout(db_, busy_milliseconds);
    MakeWatchable(db_);
    return result;
  }
  // A statement that is still alive keeps the file open until it ends.
  void Close() {
    sqlite3_close_v2(db_);
    db_ = nullptr;
  }
  // Runs statements, separated by ";", and drops their rows. SQLITE_OK, or the code of the first
  // that fails, its text in Error.
  int Run(const char* sql) {
    const int result =
        db_ == nullptr ? SQLITE_MISUSE : sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
      error_ = db_ == nullptr ? "not connected" : sqlite3_errmsg(db_);
      NoteDatabaseFailure(db_, result);
    }
    return result;
  }
  // Null while no file is open.
  sqlite3* Get() const { return db_; }
  // What the last Open or Run that failed said; neither Close nor a rollback changes it.
  const std::string& Error() const { return error_; }

 private:
  static bool _IsLink(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
  }
  static int _OpenFlags(Mode mode) {
    if (mode == Mode::kRead) {
      return SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
    }
    return SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX |
           (mode == Mode::kCreate ? SQLITE_OPEN_CREATE : 0);
  }

  sqlite3* db_ = nullptr;
  std::string error_;
};

// One prepared statement: bind, step, read, reset. Columns count from 0, parameters from 1.
class Statement {
 public:
  // Prepares `sql` on an open connection, which must outlive the steps. A text that does not
  // compile gives a statement whose every step fails with the reason.
  Statement(sqlite3* db, const std::string& sql) : db_(db) {
    failure_ = db == nullptr ? SQLITE_MISUSE
                             : sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size() + 1),
                                                  &statement_, nullptr);
    if (failure_ != SQLITE_OK) {
      NoteDatabaseFailure(db, failure_);
    }
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // Whether the text compiled.
  bool IsPrepared() const { return statement_ != nullptr; }

  // Binds a copy of the text, a number or, with nullptr, NULL. Stays bound over Reset. False when
  // there is no such parameter or no memory, and then the steps fail too.
  bool Bind(int parameter, std::string_view text) {
    const char* bytes = text.data() == nullptr ? "" : text.data();
    return _KeepFailure(sqlite3_bind_text64(statement_, parameter, bytes, text.size(),
                                            SQLITE_TRANSIENT, SQLITE_UTF8));
  }
  template <typename Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
  bool Bind(int parameter, Number number) {
    return _KeepFailure(
        sqlite3_bind_int64(statement_, parameter, static_cast<sqlite3_int64>(number)));
  }
  bool BindBytes(int parameter, std::string_view bytes) {
    return _KeepFailure(
        sqlite3_bind_blob64(statement_, parameter, bytes.data(), bytes.size(), SQLITE_TRANSIENT));
  }
  bool Bind(int parameter, std::nullptr_t) {
    return _KeepFailure(sqlite3_bind_null(statement_, parameter));
  }

  // SQLITE_ROW, SQLITE_DONE, or the code of a failure.
  int Step() {
    const int result = failure_ == SQLITE_OK ? sqlite3_step(statement_) : failure_;
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
      NoteDatabaseFailure(db_, result);
    }
    return result;
  }
  // Ready to be bound and stepped from the start again.
  void Reset() { sqlite3_reset(statement_); }
  // All values are NULL again; for a statement that is kept.
  void DropValues() { sqlite3_clear_bindings(statement_); }
  // For a statement that gives no rows: steps to its end and resets it. False when it failed.
  bool Run() {
    int result = Step();
    while (result == SQLITE_ROW) {
      result = Step();
    }
    Reset();
    return result == SQLITE_DONE;
  }
  // Calls `use(row)` with this statement standing on each row; where it answers, until it answers
  // false. True at the end; false when the reading failed, and then the rows before it have been
  // handed out.
  template <typename Use>
  bool ForEachRow(const Use& use) {
    int result = Step();
    for (; result == SQLITE_ROW; result = Step()) {
      if constexpr (std::is_same_v<decltype(use(*this)), bool>) {
        if (!use(static_cast<const Statement&>(*this))) {
          return true;
        }
      } else {
        use(static_cast<const Statement&>(*this));
      }
    }
    return result == SQLITE_DONE;
  }

  // The row that the last step gave. A column that it has not reads as NULL: 0 and no text.
  int Columns() const { return sqlite3_column_count(statement_); }
  bool IsNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }
  bool IsText(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_TEXT; }
  bool IsInteger(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_INTEGER;
  }
  int Int(int column) const { return sqlite3_column_int(statement_, column); }
  sqlite3_int64 Int64(int column) const { return sqlite3_column_int64(statement_, column); }
  // With all its bytes, zero bytes too; NULL gives the empty string.
  std::string Text(int column) const { return std::string(View(column)); }
  // The same where it lies: until the next step, reset or reading of this column.
  std::string_view View(int column) const {
    const unsigned char* bytes = sqlite3_column_text(statement_, column);
    if (bytes == nullptr) {
      return std::string_view();
    }
    const int size = sqlite3_column_bytes(statement_, column);
    return {reinterpret_cast<const char*>(bytes), static_cast<size_t>(size)};
  }
  // Every column as text.
  std::vector<std::string> Texts() const {
    std::vector<std::string> row(static_cast<size_t>(Columns()));
    for (size_t i = 0; i < row.size(); ++i) {
      row[i] = Text(static_cast<int>(i));
    }
    return row;
  }

  // SQLite's text of the connection's last failure. Read it before anything else is run.
  const char* Error() const { return db_ == nullptr ? "not connected" : sqlite3_errmsg(db_); }

 private:
  bool _KeepFailure(int result) {
    failure_ = failure_ == SQLITE_OK ? result : failure_;
    return result == SQLITE_OK;
  }

  sqlite3* db_;
  sqlite3_stmt* statement_ = nullptr;
  int failure_ = SQLITE_OK;  // why the text did not compile, or a value was not bound
};

// Statements of one connection with fixed texts, each compiled once. After a failure Clear them.
class CompiledStatements {
 public:
  // Ready to be bound and stepped; the last use of this text has ended. `sql` outlives this object.
  Statement& Get(sqlite3* db, const char* sql) {
    std::unique_ptr<Statement>& statement = by_text_[sql];
    if (statement == nullptr) {
      statement = std::make_unique<Statement>(db, sql);
    } else {
      statement->Reset();
    }
    return *statement;
  }
  // Before the connection closes.
  void Clear() { by_text_.clear(); }

 private:
  std::map<const char*, std::unique_ptr<Statement>> by_text_;
};

// A transaction that is rolled back at the end of its scope unless Commit succeeded. So read the
// text of a failure within the scope: the rollback replaces it.
class Transaction {
 public:
  // What a kRead reads is of one moment; a kWrite takes the write lock at once.
  enum class Kind { kRead, kWrite };

  Transaction(sqlite3* db, Kind kind) : db_(db) {
    result_ = _RunText(kind == Kind::kRead ? "BEGIN" : "BEGIN IMMEDIATE");
    is_open_ = result_ == SQLITE_OK;
  }
  ~Transaction() {
    // SQLite itself has rolled back after some failures (disk full).
    if (is_open_ && sqlite3_get_autocommit(db_) == 0) {
      _RunText("ROLLBACK");
    }
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // The result of the beginning.
  int Begun() const { return result_; }
  // SQLITE_OK; otherwise the transaction is still open, and the scope's end rolls it back.
  int Commit() {
    const int result = is_open_ ? _RunText("COMMIT") : result_;
    is_open_ = is_open_ && result != SQLITE_OK;
    return result;
  }

 private:
  int _RunText(const char* sql) {
    if (db_ == nullptr) {
      return SQLITE_MISUSE;
    }
    const int result = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
    NoteDatabaseFailure(db_, result);
    return result;
  }

  sqlite3* db_;
  int result_ = SQLITE_OK;
  bool is_open_ = false;
};

}  // namespace korvmailserver

#endif  // PLATFORM_SQLITE_H
