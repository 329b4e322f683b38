// Search texts and account names in the filters: whatever they hold, the composed text is one
// statement that the database takes, and the literal gives the text back.
#include <sqlite3.h>

#include "fuzz/target.h"
#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/account_db_filter_internal.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/statement.h"

namespace {

sqlite3* Database() {
  sqlite3* db = nullptr;
  sqlite3_open(":memory:", &db);
  sqlite3_exec(db,
               "CREATE TABLE user_table(uid INTEGER PRIMARY KEY, user_name TEXT);"
               "CREATE TABLE domain_view(domain_idx INTEGER, domain_name TEXT, domain_desc TEXT);",
               nullptr, nullptr, nullptr);
  return db;
}

// `sql` must be one whole statement. (A search text may be too long for LIKE; that shows only when
// it runs.)
void Check(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  const char* rest = nullptr;
  fuzz::Require(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, &rest) == SQLITE_OK);
  fuzz::Require(*rest == '\0');
  sqlite3_finalize(statement);
}

}  // namespace

void fuzz::Run(const std::string& input) {
  static sqlite3* const kDb = Database();
  // A name ends at its zero byte.
  const std::string text = input.substr(0, input.find('\0'));

  MDOMAIN::DB::DomainDBFilter domains;
  domains.SetQuery(text);
  Check(kDb, domains.ComposeQueryCmd());
  domains.SetQueryType("domain_name");
  Check(kDb, domains.ComposeQueryCmd());

  MDOMAIN::DB::UserDBFilter users;
  users.SetQuery(text);
  Check(kDb, MDOMAIN::DB::INTERNAL::ComposeQueryCmd(users));

  const std::string literal = "SELECT '" + MDOMAIN::DB::INTERNAL::EscapeQuery(text) + "'";
  sqlite3_stmt* statement = nullptr;
  Require(sqlite3_prepare_v2(kDb, literal.c_str(), -1, &statement, nullptr) == SQLITE_OK);
  Require(sqlite3_step(statement) == SQLITE_ROW);
  Require(text == reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
  sqlite3_finalize(statement);
}
