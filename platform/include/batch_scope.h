// Several batches of one database as one transaction.
#ifndef PLATFORM_BATCH_SCOPE_H
#define PLATFORM_BATCH_SCOPE_H

#include <functional>

#include "platform/include/db_handler.h"
#include "platform/include/export.h"

// While one lives, the transactional batches of the handler are savepoints of one transaction,
// begun by the first of them and committed when the outermost scope ends, also on failure: what a
// failing step leaves behind is what separate batches would leave. An exception that leaves the
// outermost scope rolls all of it back. Scopes nest. Reads through the
// handler see what the batches wrote; other processes see it after the end, and cannot write in
// between. When SQLite has to roll the whole transaction back (disk full, I/O error), every further
// batch of the scope fails with that code, and so does the scope's end. So it is in a process that
// was forked within the transaction, which stays that of its parent. The handler must outlive its
// scopes.
class MDOMAIN_EXPORT BatchScope {
 public:
  // Null, which whoever could not open a database has: one log line, and Commit fails.
  explicit BatchScope(DBHandler* handler);
  // Commits if Commit was not called, unless an exception is on its way; a failure is logged.
  ~BatchScope();
  BatchScope(const BatchScope&) = delete;
  BatchScope& operator=(const BatchScope&) = delete;
  // Ends the scope now. 0 on success (also for an inner scope, and when called again); otherwise
  // SQLite's result code (without a handler SQLITE_MISUSE), the transaction rolled back; nothing is
  // logged.
  int Commit();
  // Ends the scope now, with nothing of it stored; what an inner one did is left to the outer one.
  void Drop();

  // Whether a scope lives, of whatever handler.
  static bool IsAnyOpen();
  // Runs `action` as soon as the outermost scope that lives now has committed, after those that
  // were given before it; never when that scope fails. Without a scope: at once. For what tells
  // others about rows, who must find them.
  static void AfterCommit(std::function<void()> action);

 private:
  DBHandler* handler_;  // all that there is: programs know the size
};

#endif  // PLATFORM_BATCH_SCOPE_H
