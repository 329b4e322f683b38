#include "lib-domain/db/model_state.h"

#include "lib-domain/db/database.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/db/statement.h"
#include "platform/include/database_numbers.h"
#include "platform/include/files.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// Nothing else here uses this number of a database file, which changes and is rolled back with the
// rows. A table of our own would not be the described schema.
constexpr const char* kHasDomains = "SELECT EXISTS (SELECT 1 FROM domain_table)";
constexpr const char* kLacksDomain =
    "SELECT EXISTS (SELECT 1 FROM domain_table) AND NOT EXISTS (SELECT 1 FROM domain_table WHERE "
    "domain_idx = %d)";
constexpr const char* kSelectMark = "PRAGMA application_id";
constexpr int kEmptied = 0x4D444F4D;
constexpr const char* kSetEmptied = "PRAGMA application_id = %d";
constexpr const char* kEmptiedFailure = "fail to mark domain_table as emptied";
constexpr const char* kSelectVersion = "PRAGMA data_version";

Database DomainDb() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return {handler, handler != nullptr ? 0 : -1};
}

}  // namespace

bool BeginWriting() {
  StatementBatch batch;
  batch.Add(";");
  return DomainDb().Run(batch, "fail to lock domain_table");
}

bool GetContent(Content& content) {
  const ReadScope of_one_moment;
  bool has_domains = false;
  if (!DomainDb().GetExists(kHasDomains, has_domains)) {
    return false;
  }
  content = Content::kDomains;
  return has_domains || DomainDb().Query<Columns<Int>>(kSelectMark, [&content](int mark) {
    content = mark == kEmptied ? Content::kEmptied : Content::kNothing;
  });
}

bool SetEmptiedIfEmpty() {
  Content content = Content::kDomains;
  if (!GetContent(content)) {
    return false;
  }
  StatementBatch batch;
  if (content == Content::kNothing) {
    batch.Add(FormatStatement(kSetEmptied, kEmptied));
  }
  return DomainDb().Run(batch, kEmptiedFailure);
}

bool ClearEmptied() {
  StatementBatch batch;
  batch.Add(FormatStatement(kSetEmptied, 0));
  return DomainDb().Run(batch, kEmptiedFailure);
}

bool IsUnknownDomain(int domain_idx, bool& is_unknown) {
  is_unknown = false;
  std::string path;
  if (domain_idx == 0) {
    return true;
  }
  if (!UTILS::GetUserGroupDomainConfigPath(path)) {
    return false;
  }
  return !postara::sdk::Exist(path) ||
         DomainDb().GetExists(Sql(kLacksDomain, domain_idx), is_unknown);
}

// Without a lock where the file tells it.
bool GetDataVersion(std::string& version) {
  const DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  korvmailserver::DatabaseNumbers numbers;
  if (handler != nullptr && korvmailserver::ReadDatabaseNumbers(handler->getDB(), numbers)) {
    version = "file " + std::to_string(numbers.changes);
    return true;
  }
  return DomainDb().GetText(kSelectVersion, 0, version);
}

}  // namespace MDOMAIN::DB::INTERNAL
