// The number of a file's changes, as SQLite keeps it.
#include "lib-domain/db/change_counter.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/handler.h"
#include "platform/include/database_numbers.h"

namespace MDOMAIN::DB {

bool INTERNAL::ReadChangeCounter(sqlite3* db, int& counter) {
  korvmailserver::DatabaseNumbers numbers;
  if (db == nullptr || !korvmailserver::ReadDatabaseNumbers(db, numbers)) {
    return false;
  }
  counter = static_cast<int>(numbers.changes);
  return true;
}

bool GetChangeCounter(int& counter) {
  const DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  if (!INTERNAL::ReadChangeCounter(handler == nullptr ? nullptr : handler->getDB(), counter)) {
    LOG_ERROR("Failed to read the change counter of [%s]",
              handler == nullptr ? "" : handler->GetPath().c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::DB
