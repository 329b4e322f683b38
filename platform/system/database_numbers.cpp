// The file is read through SQLite's own descriptor: closing another one of the file would drop this
// process's locks.
#include "platform/include/database_numbers.h"

#include <sqlite3.h>

#include <array>
#include <cstddef>

namespace korvmailserver {

namespace {

constexpr size_t kVersionAt = 18;  // of those who may write the file; 1: with a rollback journal
constexpr unsigned char kRollbackJournal = 1;
constexpr size_t kChangesAt = 24;
constexpr size_t kSchemaAt = 40;
using Header = std::array<unsigned char, kSchemaAt + sizeof(uint32_t)>;

// Highest byte first.
uint32_t NumberAt(const Header& header, size_t place) {
  uint32_t number = 0;
  for (size_t i = 0; i < sizeof(number); ++i) {
    number = (number << 8U) | header.at(place + i);
  }
  return number;
}

}  // namespace

bool ReadDatabaseNumbers(sqlite3* db, DatabaseNumbers& numbers) {
  sqlite3_file* file = nullptr;
  if (db != nullptr) {
    sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  }
  Header header = {};
  if (file == nullptr || file->pMethods == nullptr ||
      file->pMethods->xRead(file, header.data(), static_cast<int>(header.size()), 0) != SQLITE_OK ||
      header[kVersionAt] != kRollbackJournal) {
    return false;
  }
  numbers = {NumberAt(header, kChangesAt), NumberAt(header, kSchemaAt)};
  return true;
}

}  // namespace korvmailserver
