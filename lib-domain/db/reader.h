// A look into a database file that cannot change it: neither its rows, nor its schema, nor whether
// it exists. For what must not go through the handlers, which create and upgrade.
#ifndef LIB_DOMAIN_DB_READER_H
#define LIB_DOMAIN_DB_READER_H

#include <functional>
#include <string>

#include "platform/include/export.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

// Takes back what a killed writer left half-written, for whoever may write: a connection that only
// reads refuses a file with such a journal. The journal of a living writer stays.
void RollBackKilledWriter(const std::string& path);

class MDOMAIN_EXPORT Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {}

  // A missing file is success, and has no rows. What a killed writer left half-written is taken
  // back first, by whoever may write. False with one log line when the file cannot be
  // opened; what is wrong inside shows at the first query.
  bool Open();

  // Calls `use` for each row, with the statement standing on it. False with one log line when the
  // query fails; rows before that were handed out.
  bool ForEachRow(const char* sql,
                  const std::function<void(const korvmailserver::Statement& row)>& use) const;

  // The connection; null for a missing file.
  sqlite3* Get() const { return connection_.Get(); }

 private:
  std::string path_;
  korvmailserver::Connection connection_;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_READER_H
