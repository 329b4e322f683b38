// One transaction over the batches of a scope; exeCmds makes each of them a savepoint in it.
#include <sqlite3.h>

#include <utility>

#include "platform/include/db_handler.h"
#include "platform/include/maillog.h"

using korvmailserver::kLogError;

int DBHandler::_EndTransaction() {
  if (scope_lost_ != SQLITE_OK) {
    return err_ = std::exchange(scope_lost_, SQLITE_OK);
  }
  if (!std::exchange(scope_open_, false)) {
    return SQLITE_OK;
  }
  const int result = _ExecText("COMMIT");
  if (result != SQLITE_OK) {
    _RollBack();
  }
  return err_ = result;
}

BatchScope::BatchScope(DBHandler* handler) : handler_(handler) {
  if (handler_ != nullptr) {
    ++handler_->scope_depth_;
  }
}

BatchScope::~BatchScope() {
  DBHandler* const handler = handler_;
  if (Commit() != SQLITE_OK) {
    maillog(kLogError, "Cannot commit to database [%s]: %s", handler->path_.c_str(),
            handler->err_text_.c_str());
  }
}

int BatchScope::Commit() {
  DBHandler* const handler = std::exchange(handler_, nullptr);
  if (handler == nullptr || --handler->scope_depth_ > 0) {
    return SQLITE_OK;
  }
  return handler->_EndTransaction();
}
