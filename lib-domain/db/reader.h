// A look into a database file that cannot change it: neither its rows, nor its schema, nor whether
// it exists. For what must not go through the handlers, which create and upgrade.
#ifndef LIB_DOMAIN_DB_READER_H
#define LIB_DOMAIN_DB_READER_H

#include <functional>
#include <string>
#include <vector>

struct sqlite3;

namespace MDOMAIN::DB::INTERNAL {

class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {}
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // A missing file is success, and has no rows. False with one log line when the file cannot be
  // opened; what is wrong inside shows at the first query.
  bool Open();

  // Calls `use` with each row's columns as text (NULL: empty). False with one log line when the
  // query fails; rows before that were handed out.
  bool ForEachRow(const char* sql,
                  const std::function<void(const std::vector<std::string>& row)>& use);

 private:
  std::string path_;
  sqlite3* db_ = nullptr;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_READER_H
