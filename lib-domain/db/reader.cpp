// A connection of its own, opened for reading only, closed with the object.
#include "lib-domain/db/reader.h"

#include <sqlite3.h>

#include <memory>

#include "lib-domain/base/log_line.h"
#include "platform/include/files.h"

namespace MDOMAIN::DB::INTERNAL {
namespace {

constexpr int kBusyTimeout = 10000;  // milliseconds, as the handler waits before a query

std::vector<std::string> Columns(sqlite3_stmt* statement) {
  std::vector<std::string> row(static_cast<size_t>(sqlite3_column_count(statement)));
  for (size_t i = 0; i < row.size(); ++i) {
    const unsigned char* text = sqlite3_column_text(statement, static_cast<int>(i));
    row[i] = text == nullptr ? "" : reinterpret_cast<const char*>(text);
  }
  return row;
}

}  // namespace

Reader::~Reader() {
  sqlite3_close(db_);
}

bool Reader::Open() {
  if (!postara::sdk::Exist(path_)) {
    return true;
  }
  const int result = sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr);
  if (result != SQLITE_OK) {
    LOG_ERROR("Failed to open %s, %s", path_.c_str(), sqlite3_errmsg(db_));
    sqlite3_close(db_);
    db_ = nullptr;
    return false;
  }
  sqlite3_busy_timeout(db_, kBusyTimeout);
  return true;
}

bool Reader::ForEachRow(const char* sql,
                        const std::function<void(const std::vector<std::string>& row)>& use) {
  if (db_ == nullptr) {
    return true;
  }
  sqlite3_stmt* raw = nullptr;
  int result = sqlite3_prepare_v2(db_, sql, -1, &raw, nullptr);
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(raw, sqlite3_finalize);
  while (result == SQLITE_OK || result == SQLITE_ROW) {
    result = sqlite3_step(raw);
    if (result == SQLITE_ROW) {
      use(Columns(raw));
    }
  }
  if (result != SQLITE_DONE) {
    LOG_ERROR("Failed to read %s, %s", path_.c_str(), sqlite3_errmsg(db_));
  }
  return result == SQLITE_DONE;
}

}  // namespace MDOMAIN::DB::INTERNAL
