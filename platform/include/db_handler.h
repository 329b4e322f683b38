// The mail server's shared SQLite wrapper: one connection, batches, scopes.
#ifndef PLATFORM_DB_HANDLER_H
#define PLATFORM_DB_HANDLER_H

#include <string>
#include <vector>

struct sqlite3;

// Statements in the order in which they run; an entry may hold several, separated by ";".
using SQLCmd = std::vector<std::string>;

class DBHandler {
 public:
  // Opens nothing. `schema` is run by connect() when it creates the file; it may be empty.
  DBHandler(const std::string& path, const std::string& schema);
  virtual ~DBHandler();  // disconnects
  DBHandler(const DBHandler&) = delete;
  DBHandler& operator=(const DBHandler&) = delete;

  // Opens the file, creating it (owner "Postara-Server", mode 0644) and running the schema in one
  // transaction if it is missing or empty. 0 on success; otherwise one log line that names the file
  // and what is wrong with it (a directory, not a database, not readable), and nothing is left
  // behind that was not there. A connected handler: 0 at once.
  int connect();
  void disconnect();

  // Runs the entries in order and stops at the first failure. With `transaction`, BEGIN IMMEDIATE
  // before and COMMIT after them, and a failure rolls everything back; inside a BatchScope the
  // batch is a savepoint instead. An empty list succeeds. 0 on success, else SQLite's result code,
  // which is also kept as the handler's (GetErr).
  int exeCmds(const SQLCmd& cmds, bool transaction);

  void setBusyTimeout(int milliseconds);
  sqlite3* getDB() const { return db_; }
  int GetErr() const { return err_; }
  const std::string& GetPath() const { return path_; }

  // Number of rows of a table or view; -1 when it cannot be read.
  int GetTableDataCount(const std::string& table);

  // Moves a broken file aside ("NAME.broken") and creates a new one with the schema. 0 on success.
  int regenDB();

 protected:
  int err_ = 0;
  sqlite3* db_ = nullptr;
  std::string path_;
  std::string schema_;

 private:
  friend class BatchScope;
  int scope_depth_ = 0;
  bool scope_open_ = false;
};

// While one lives, the transactional batches of the handler are savepoints of one transaction,
// begun by the first of them and committed when the outermost scope ends, also on failure: what a
// failing step leaves behind is what separate batches would leave. Scopes nest.
class BatchScope {
 public:
  explicit BatchScope(DBHandler* handler);  // null: does nothing
  // Commits if Commit was not called; a failure is logged.
  ~BatchScope();
  BatchScope(const BatchScope&) = delete;
  BatchScope& operator=(const BatchScope&) = delete;
  // Ends the scope now. 0 on success (also for an inner scope); otherwise SQLite's result code, the
  // transaction rolled back.
  int Commit();

 private:
  DBHandler* handler_;
};

#endif  // PLATFORM_DB_HANDLER_H
