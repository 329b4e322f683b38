#include "lib-domain/db/remembered.h"

#include <sqlite3.h>

namespace MDOMAIN::DB::INTERNAL {

bool ReadNumbers(DomainDBHandler& handler, korvmailserver::DatabaseNumbers& numbers) {
  return sqlite3_txn_state(handler.getDB(), "main") != SQLITE_TXN_WRITE &&
         korvmailserver::ReadDatabaseNumbers(handler.getDB(), numbers);
}

}  // namespace MDOMAIN::DB::INTERNAL
