// The statements of the table of notices.
#include "lib-domain/db/notice.h"

#include "lib-domain/db/database.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

constexpr const char* kCreateTable =
    "CREATE TABLE IF NOT EXISTS mdomain_notice_table(uid INTEGER PRIMARY KEY);";
constexpr const char* kHasTable =
    "SELECT EXISTS (SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = "
    "'mdomain_notice_table')";
constexpr const char* kInsert =
    "INSERT OR IGNORE INTO mdomain_notice_table SELECT value FROM json_each(?1)";
constexpr const char* kInsertOne = "INSERT OR IGNORE INTO mdomain_notice_table VALUES(%u)";
constexpr const char* kSelect = "SELECT uid FROM mdomain_notice_table ORDER BY uid";
constexpr const char* kDelete = "DELETE FROM mdomain_notice_table";

}  // namespace

Notice::Notice()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database Notice::_DomainDb() const {
  return {handler_, status_};
}

bool Notice::Add(const std::vector<unsigned int>& uids) {
  StatementBatch batch;
  if (!uids.empty()) {
    batch.AddKept(kCreateTable);
  }
  if (uids.size() == 1) {
    batch.AddKept(Sql(kInsertOne, uids.front()));
  } else if (!uids.empty()) {
    batch.AddKept(Sql(kInsert, JsonList(uids)));
  }
  return _DomainDb().Run(batch, "fail to insert mdomain_notice_table");
}

bool Notice::List(std::vector<unsigned int>& uids) {
  bool exists = false;
  return _DomainDb().GetExistsInSchema(kHasTable, exists) &&
         (!exists || _DomainDb().Append<Columns<Uid>>(kSelect, uids));
}

bool Notice::DeleteAll() {
  StatementBatch batch;
  batch.AddKept(kDelete);
  return _DomainDb().Run(batch, "fail to delete mdomain_notice_table");
}

}  // namespace MDOMAIN::DB
