// Several batches of one database as one transaction.
#ifndef PLATFORM_BATCH_SCOPE_H
#define PLATFORM_BATCH_SCOPE_H

#include <functional>

#include "platform/include/db_handler.h"
#include "platform/include/export.h"

// While one lives, the transactional batches of the handler are savepoints of one transaction,
// begun by the first of them and committed when the outermost scope ends, also on failure: what a
// failing step leaves behind is what separate batches would leave. Scopes nest. Reads through the
// handler see what the batches wrote; other processes see it after the end, and cannot write in
// between. When SQLite has to roll the whole transaction back (disk full, I/O error), every further
// batch of the scope fails with that code, and so does the scope's end. The handler must outlive
// its scopes.
class MDOMAIN_EXPORT BatchScope {
 public:
  explicit BatchScope(DBHandler* handler);  // null: does nothing
  // Commits if Commit was not called; a failure is logged.
  ~BatchScope();
  BatchScope(const BatchScope&) = delete;
  BatchScope& operator=(const BatchScope&) = delete;
  // Ends the scope now. 0 on success (also for an inner scope, and when called again); otherwise
  // SQLite's result code, the transaction rolled back; nothing is logged.
  int Commit();

  // Whether a scope lives, of whatever handler.
  static bool IsAnyOpen();
  // Runs `action` as soon as the outermost scope that lives now has committed, after those that
  // were given before it; never when that scope fails. Without a scope: at once. For what tells
  // others about rows, who must find them.
  static void AfterCommit(std::function<void()> action);

 private:
  DBHandler* handler_;
};

#endif  // PLATFORM_BATCH_SCOPE_H
