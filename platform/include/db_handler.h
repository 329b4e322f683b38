// The mail server's shared SQLite wrapper: one connection, batches.
#ifndef PLATFORM_DB_HANDLER_H
#define PLATFORM_DB_HANDLER_H

#include <functional>
#include <string>
#include <vector>

#include "platform/include/export.h"

struct sqlite3;

// Statements in the order in which they run; an entry may hold several, separated by ";".
using SQLCmd = std::vector<std::string>;

// What a batch does at once with one statement.
struct SqlStep {
  std::string text;  // of the statement, or what its rows have in common; nobody runs it
  // Gives SQLite's code of its first failure, or 0. It begins and ends no transaction.
  std::function<int(sqlite3*)> run;
};

// An object and its connection, which is opened without SQLite's lock for threads, are for one
// thread at a time. Several processes may use one file: SQLite's locks apply, with the busy
// timeout. A process that was forked from the one that connected neither uses nor closes its
// connection: every call fails (SQLITE_MISUSE) until disconnect() and connect().
class MDOMAIN_EXPORT DBHandler {
 public:
  // Opens nothing. `schema` is run by connect() when it creates the file; it may be empty.
  DBHandler(const std::string& path, const std::string& schema);
  virtual ~DBHandler();  // disconnects
  DBHandler(const DBHandler&) = delete;
  DBHandler& operator=(const DBHandler&) = delete;

  // Opens the file for reading and writing; one that may only be read for reading, so that every
  // write fails (SQLITE_READONLY). A missing one is created (owner "Postara-Server", mode
  // 0644) with its folder (mode 0755) and missing folders above; a file without any table gets the
  // schema, in one transaction, also when several processes connect at once. 0 on success;
  // otherwise SQLite's result code and one log line that names the file and what is wrong with it
  // (a directory, a link, not a database, no rights, locked, a folder that cannot be made, a
  // schema that fails), and no file is left behind that was not there. A connected handler: 0 at
  // once.
  int connect();
  // Before connect(): a missing file that this process may not create is then no failure, but reads
  // as a new one. Every write fails (SQLITE_READONLY), and a file that somebody else makes later is
  // not seen before the next connect().
  void readMissingAsNew() { reads_missing_ = true; }
  // Before connect(): a file that is missing although this process has had it open by such a
  // handler is then a failure with one log line, and none is made in its place.
  void refuseLost() { refuses_lost_ = true; }

  // What stands at the path, beside the open file, which would be read and written all the same.
  enum class FileNow {
    kSame,     // also while nothing is open
    kOther,    // it was replaced, one came into being where there was none, or the connection is
               // that of the process from which this one was forked: disconnect and connect
    kMissing,  // it was moved away or removed
  };
  FileNow lookAtFile() const;
  bool isReplaced() const;  // kOther
  // Commits the transaction of a BatchScope that is open (a failure is logged) and closes the file.
  // In a forked process the connection is left to its owner, and a transaction that was open in it
  // is lost to this process: a BatchScope that still lives fails.
  void disconnect();

  // Runs the entries in order and stops at the first failure. With `transaction`, BEGIN IMMEDIATE
  // before and COMMIT after them, and a failure rolls everything back; inside a BatchScope the
  // batch is a savepoint instead. Without it, what ran before the failure stays. An empty list
  // succeeds. 0 on success, else SQLite's result code, which is also kept as the handler's (GetErr)
  // with its text (GetErrText); nothing is logged. Entries must not begin or end transactions.
  int exeCmds(const SQLCmd& cmds, bool transaction);
  // The same with `transaction`, of statements that were compiled once for many rows.
  int exeSteps(const std::vector<SqlStep>& steps);

  // How long a statement waits for another process's lock; 10 seconds until it is set. May be
  // called before connect().
  void setBusyTimeout(int milliseconds);
  // The connection; null while there is none.
  sqlite3* getDB() const { return db_; }
  // The result code of the last call made through the handler, 0 after success.
  int GetErr() const { return err_; }
  // SQLite's text of the last failure. After a batch that was rolled back sqlite3_errmsg only says
  // "not an error"; this still says why.
  const std::string& GetErrText() const { return err_text_; }
  const std::string& GetPath() const { return path_; }

  // Number of rows of a table or view; -1 when it cannot be read (GetErr tells why).
  int GetTableDataCount(const std::string& table);

  // Moves a broken file with its journal aside ("NAME.broken", over an older one) and creates a new
  // one with the schema. 0 on success; on failure one log line and the old file is in its place
  // again, the handler disconnected.
  int regenDB();

 protected:
  // For a class that makes the schema itself: after that, nothing can be written in the place of a
  // file that is missing. Nothing happens where there is a file.
  void forbidWritesInMemory();
  // For a class that keeps statements: `action` runs before a connection is closed. Such a class
  // calls disconnect in its destructor.
  void beforeClosing(std::function<void()> action);

  int err_ = 0;
  sqlite3* db_ = nullptr;
  std::string path_;
  std::string schema_;

 private:
  friend class BatchScope;

  bool _CreateFile(bool& created);
  int _OpenStandIn();
  int _OpenAndCheck();
  int _RunSchema();
  bool _IsOfOtherProcess() const;
  void _LeaveToParent();
  int _RunGuarded(const std::function<int()>& run);
  int _RunTransaction(const std::function<int()>& work);
  int _RunSavepoint(const std::function<int()>& work);
  int _RunAll(const SQLCmd& cmds);
  int _EndTransaction();
  void _DropTransaction();
  bool _NoticeLostTransaction(int result);
  int _ExecText(const char* sql);
  int _KeepFailure(int result);
  void _RollBack();

  // What came later than the first release is kept beside the objects, whose size and places
  // programs know.
  std::string err_text_;
  int busy_timeout_ = 10000;
  [[maybe_unused]] bool unused_ = false;  // programs of then write it
  bool reads_missing_ = false;
  bool refuses_lost_ = false;
  bool is_stand_in_ = false;  // connected, in memory, in the place of a missing file
  int scope_depth_ = 0;
  bool scope_open_ = false;  // the scope's transaction has begun
  int scope_lost_ = 0;       // why SQLite rolled it back under the scope, 0 while it has not
};

#endif  // PLATFORM_DB_HANDLER_H
