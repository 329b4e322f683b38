// One transaction over the batches of a scope; exeCmds makes each of them a savepoint in it.
#include <sqlite3.h>

#include <exception>
#include <map>
#include <utility>

#include "platform/include/batch_scope.h"
#include "platform/include/maillog.h"
#include "platform/include/scope_guard.h"

using korvmailserver::kLogError;

namespace {

// The handler of the outermost scope, and what waits for its commit.
DBHandler* outermost = nullptr;
std::vector<std::function<void()>>& Waiting() {
  static auto* waiting = new std::vector<std::function<void()>>();
  return *waiting;
}

// How each scope that lives began.
struct Beginning {
  bool has_handler = false;
  int exceptions = 0;  // on their way then
};
std::map<const BatchScope*, Beginning>& Beginnings() {
  static auto* beginnings = new std::map<const BatchScope*, Beginning>();
  return *beginnings;
}

void EndWaiting(bool is_committed) {
  outermost = nullptr;
  const auto actions = std::exchange(Waiting(), {});  // an action may open a scope of its own
  if (!is_committed) {
    return;
  }
  for (const std::function<void()>& action : actions) {
    action();
  }
}

}  // namespace

int DBHandler::_EndTransaction() {
  if (_IsOfOtherProcess()) {
    disconnect();
  }
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

void DBHandler::_DropTransaction() {
  if (_IsOfOtherProcess()) {
    disconnect();
  }
  scope_lost_ = SQLITE_OK;
  if (std::exchange(scope_open_, false)) {
    _RollBack();
  }
}

BatchScope::BatchScope(DBHandler* handler) : handler_(handler) {
  Beginnings()[this] = {handler != nullptr, std::uncaught_exceptions()};
  if (handler == nullptr) {
    maillog(kLogError, "A transaction was asked for where no database is open");
    return;
  }
  ++handler_->scope_depth_;
  outermost = outermost == nullptr ? handler_ : outermost;
}

BatchScope::~BatchScope() {
  DBHandler* const handler = handler_;
  const postara::ScopeGuard forget([this] { Beginnings().erase(this); });
  if (std::uncaught_exceptions() > Beginnings()[this].exceptions) {
    Drop();
  } else if (handler != nullptr && Commit() != SQLITE_OK) {
    maillog(kLogError, "Cannot commit to database [%s]: %s", handler->path_.c_str(),
            handler->err_text_.c_str());
  }
}

int BatchScope::Commit() {
  DBHandler* const handler = std::exchange(handler_, nullptr);
  if (handler == nullptr || --handler->scope_depth_ > 0) {
    return Beginnings()[this].has_handler ? SQLITE_OK : SQLITE_MISUSE;
  }
  const int result = handler->_EndTransaction();
  if (handler == outermost) {
    EndWaiting(result == SQLITE_OK);
  }
  return result;
}

void BatchScope::Drop() {
  DBHandler* const handler = std::exchange(handler_, nullptr);
  if (handler == nullptr || --handler->scope_depth_ > 0) {
    return;
  }
  handler->_DropTransaction();
  if (handler == outermost) {
    EndWaiting(false);
  }
}

bool BatchScope::IsAnyOpen() {
  return outermost != nullptr;
}

void BatchScope::AfterCommit(std::function<void()> action) {
  if (IsAnyOpen()) {
    Waiting().push_back(std::move(action));
  } else {
    action();
  }
}
