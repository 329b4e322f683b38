// A connection of its own, opened for reading only, closed with the object.
#include "lib-domain/db/reader.h"

#include "lib-domain/base/log_line.h"
#include "platform/include/files.h"
#include "platform/include/lost_database.h"

namespace MDOMAIN::DB::INTERNAL {

using korvmailserver::Connection;
using korvmailserver::Statement;

namespace {

constexpr int kBusyMilliseconds = 10000;  // as the handler waits before a query

}  // namespace

void RollBackKilledWriter(const std::string& path) {
  Connection writer;
  if (postara::sdk::Exist(path + "-journal") &&
      writer.Open(path, Connection::Mode::kWrite, kBusyMilliseconds) == SQLITE_OK) {
    writer.Run("PRAGMA user_version");
  }
}

bool Reader::Open() {
  if (!postara::sdk::Exist(path_)) {
    return !korvmailserver::IsDatabaseLost(path_);
  }
  RollBackKilledWriter(path_);
  if (connection_.Open(path_, Connection::Mode::kRead, kBusyMilliseconds) != SQLITE_OK) {
    LOG_ERROR("Failed to open %s, %s", path_.c_str(), connection_.Error().c_str());
    return false;
  }
  return true;
}

bool Reader::ForEachRow(const char* sql,
                        const std::function<void(const Statement& row)>& use) const {
  if (connection_.Get() == nullptr) {
    return true;
  }
  Statement statement(connection_.Get(), sql);
  if (!statement.ForEachRow(use)) {
    LOG_ERROR("Failed to read %s, %s", path_.c_str(), statement.Error());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
