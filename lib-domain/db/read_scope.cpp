#include "lib-domain/db/read_scope.h"

#include <sqlite3.h>

namespace MDOMAIN::DB {

ReadScope::ReadScope(DomainDBHandler* handler) {
  if (handler == nullptr || handler->is_pinned_ || !handler->FollowFile()) {
    return;
  }
  handler_ = handler;
  handler_->is_pinned_ = true;
  sqlite3* const db = handler_->getDB();
  has_begun_ = sqlite3_get_autocommit(db) != 0 &&
               sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr) == SQLITE_OK;
}

ReadScope::~ReadScope() {
  if (handler_ == nullptr) {
    return;
  }
  handler_->is_pinned_ = false;
  sqlite3* const db = handler_->getDB();
  if (has_begun_ && sqlite3_get_autocommit(db) == 0) {
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  }
}

}  // namespace MDOMAIN::DB
