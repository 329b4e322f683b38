// A test with a domain database of its own, and a second connection to see what is in it.
#ifndef TESTS_SUPPORT_DOMAIN_DB_H
#define TESTS_SUPPORT_DOMAIN_DB_H

#include <sqlite3.h>

#include <string>
#include <vector>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/handler.h"
#include "tests/support/fixture.h"

namespace test {

// Another program's connection. Rows are given as their cells joined by "|", NULL as "-".
class SqliteFile {
 public:
  explicit SqliteFile(const std::string& path) { sqlite3_open(path.c_str(), &db_); }
  ~SqliteFile() { sqlite3_close(db_); }
  SqliteFile(const SqliteFile&) = delete;
  SqliteFile& operator=(const SqliteFile&) = delete;

  void Run(const std::string& sql) {
    EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db_) << ": " << sql;
  }
  // False where another connection holds the lock.
  bool IsRun(const std::string& sql) {
    return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  std::vector<std::string> Rows(const std::string& sql) {
    std::vector<std::string> rows;
    const auto add = [](void* out, int count, char** cells, char** /*names*/) {
      std::string row;
      for (int i = 0; i < count; ++i) {
        row += (i == 0 ? "" : "|") + std::string(cells[i] == nullptr ? "-" : cells[i]);
      }
      static_cast<std::vector<std::string>*>(out)->push_back(row);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), add, &rows, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db_) << ": " << sql;
    return rows;
  }

 private:
  sqlite3* db_ = nullptr;
};

class DomainDbTest : public RootTest {
 protected:
  DomainDbTest() { Write("/var/packages/Postara-Server/etc/placeholder", ""); }
  ~DomainDbTest() override { MDOMAIN::DB::DomainDBHandler::CloseDomainDBHandler(); }

  // Where the database of local accounts lies.
  static std::string DbPath() { return MDOMAIN::PATHS::EtcDir() + "local_DOMAIN.db"; }
  static void Run(const std::string& sql) { SqliteFile(DbPath()).Run(sql); }
  static std::vector<std::string> Rows(const std::string& sql) {
    return SqliteFile(DbPath()).Rows(sql);
  }
};

using StringList = std::vector<std::string>;

inline std::string Text(const StringList& list) {
  return MDOMAIN::BASE::Join(list, ", ");
}

}  // namespace test

#endif  // TESTS_SUPPORT_DOMAIN_DB_H
