// SQLite counts the changes of a file in four bytes of its header, highest first. They are read
// through SQLite's own descriptor: closing another one of the file would drop this process's locks.
#include "lib-domain/db/change_counter.h"

#include <sqlite3.h>

#include <cstdint>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB {

bool INTERNAL::ReadChangeCounter(sqlite3* db, int& counter) {
  constexpr sqlite3_int64 kCounterAt = 24;
  sqlite3_file* file = nullptr;
  if (db != nullptr) {
    sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  }
  unsigned char bytes[4] = {};
  if (file == nullptr || file->pMethods == nullptr ||
      file->pMethods->xRead(file, bytes, sizeof(bytes), kCounterAt) != SQLITE_OK) {
    return false;
  }
  uint32_t read = 0;
  for (const unsigned char byte : bytes) {
    read = (read << 8U) | byte;
  }
  counter = static_cast<int>(read);
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
