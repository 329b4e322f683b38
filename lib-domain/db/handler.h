// The one connection to the domain database: opening, schema upgrade, row-returning queries.
//
// Every store borrows the process-wide handler. Several processes share the file through SQLite's
// locks; within a process one thread at a time may use any of it, the first opening included: the
// connection is opened without SQLite's own lock for threads.
#ifndef LIB_DOMAIN_DB_HANDLER_H
#define LIB_DOMAIN_DB_HANDLER_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/include/db_handler.h"
#include "platform/include/export.h"

namespace korvmailserver {
class Statement;
}

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
struct HandlerState;
class Sql;
}  // namespace INTERNAL

class MDOMAIN_EXPORT DomainDBHandler : public DBHandler {
 public:
  // The process-wide handler, opened, upgraded and kept on first use. Null, with the reason logged,
  // when the file cannot be found, opened or upgraded; the next call tries again. It stays with the
  // path of that moment: when the root prefix or the account domain changes, close it to get the
  // other file. Another file that takes its place there is opened (FollowFile); while the file is
  // missing it is null, and no empty one is made in its place.
  static DomainDBHandler* GetDomainDBHandler();
  // Closes it, so that the next GetDomainDBHandler opens anew. Stores that still exist keep a
  // dangling handler: for the end of a program's use of the library. A file that is missing then is
  // a new one.
  static void CloseDomainDBHandler();

  // Opens nothing.
  explicit DomainDBHandler(const std::string& path);
  ~DomainDBHandler() override;

  // Opens the file, creating it, with foreign keys enforced, and brings its schema to the current
  // version; after a failure the file is at the last whole version. Processes that do so at once
  // wait for the first of them. A file of a newer version is opened as it is, one that has tables
  // but none for domains is refused and stays as it is. 0, or the handler's result code with the
  // reason logged. A file that may be written gets the indexes of this library where it lacks them;
  // when that fails the file serves without. On a machine that pulls the file stays as it came, of
  // an older version too.
  int ConnectAndUpgrade();
  // Opens the file anew when another one has taken its place, as a pull does: from now on it is
  // read. So does a process that was forked from the one that opened it. Nothing happens while a
  // BatchScope or a ReadScope lives, which needs its file. True; false with the reason logged when
  // the other one cannot be opened or the file is missing: then the handler is disconnected, and
  // the next call tries again. Stores call it before each statement or batch.
  bool FollowFile();
  // Whether the account source that this process works with, and with it the model, is still the
  // one in force; only the process-wide handler's is asked. False with one log line: then nothing
  // may be written or published. Stores ask before each write that begins a transaction.
  bool IsOfSourceInForce() const;
  // Opens the file, creating it, sets its owner and mode and gives an empty file its schema. When
  // the owner cannot be set the file stays empty. The handler's result code. Nothing here calls it.
  int createDB();
  // Whether the connection to the file that stands there now has views of its own (DefineOwnViews).
  bool HasOwnViews();
  // Runs one query (what follows a ";" is not run). One vector of column texts per row, NULL as "".
  // Waits up to 10 seconds for other processes, from then on for every statement of the connection.
  // Throws LogException 4009, which logs SQLite's reason and the query.
  std::vector<std::vector<std::string>> ExecSelectCmd(const std::string& sql);
  // The same, row by row, until `use` answers false. The rows before a failure have been handed
  // out.
  void ForEachRow(const std::string& sql,
                  const std::function<bool(const korvmailserver::Statement& row)>& use);
  // The same; a kept query is compiled once for this connection. `use` may ask for it again.
  void ForEachRow(const INTERNAL::Sql& sql,
                  const std::function<bool(const korvmailserver::Statement& row)>& use);

 private:
  friend class ReadScope;
  friend class INTERNAL::Database;

  int _InitPragma();
  int _GetNowVersion();
  bool _IsOfAnother();
  bool _LacksDomains();
  int _UpgradeDB(int version);
  int _RunScripts(int version, const std::vector<std::string>& scripts);
  void _PrepareFastRoads();
  INTERNAL::HandlerState& _State() const;
  using RowVisitor = std::function<bool(const korvmailserver::Statement& row)>;
  enum class OnFailure { kThrow, kStaySilent };
  bool _RunKept(const INTERNAL::Sql& sql, const RowVisitor& use, OnFailure on_failure);
  bool _RunQuery(korvmailserver::Statement& statement, const INTERNAL::Sql& sql,
                 const RowVisitor& use, OnFailure on_failure);

  static DomainDBHandler* _singleDomainDBHandler;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_HANDLER_H
