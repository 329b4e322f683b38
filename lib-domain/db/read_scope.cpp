#include "lib-domain/db/read_scope.h"

#include <sqlite3.h>

#include "lib-domain/db/handler_state.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::DB {

ReadScope::ReadScope(DomainDBHandler* handler) {
  if (handler != nullptr && handler->FollowFile()) {
    _Begin(handler);
  }
}

ReadScope::ReadScope() {
  DomainDBHandler* const handler = DomainDBHandler::_singleDomainDBHandler;
  if (handler != nullptr && handler->getDB() != nullptr &&
      (handler->_State().is_pinned || BatchScope::IsAnyOpen() ||
       handler->lookAtFile() == DBHandler::FileNow::kSame)) {
    _Begin(handler);
  }
}

void ReadScope::_Begin(DomainDBHandler* handler) {
  is_in_force_ = true;
  if (handler->_State().is_pinned) {
    return;
  }
  handler_ = handler;
  handler_->_State().is_pinned = true;
  has_begun_ = sqlite3_get_autocommit(handler_->getDB()) != 0 && _Run("BEGIN");
}

ReadScope::~ReadScope() {
  if (handler_ == nullptr) {
    return;
  }
  handler_->_State().is_pinned = false;
  if (has_begun_ && sqlite3_get_autocommit(handler_->getDB()) == 0) {
    _Run("COMMIT");
  }
}

bool ReadScope::_Run(const char* sql) {
  INTERNAL::StatementLoan loan(handler_->_State().kept, handler_->getDB(), INTERNAL::Sql(sql));
  return loan.Get().Run();
}

}  // namespace MDOMAIN::DB
