#include "lib-domain/db/model_state.h"

#include "lib-domain/db/database.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// Nothing else here uses this number of a database file, which changes and is rolled back with the
// rows. A table of our own would not be the described schema.
constexpr const char* kSelectContent =
    "SELECT EXISTS (SELECT 1 FROM domain_table), application_id FROM pragma_application_id";
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
  return DomainDb().Query<Columns<Flag, Int>>(kSelectContent, [&content](bool any, int mark) {
    const Content none = mark == kEmptied ? Content::kEmptied : Content::kNothing;
    content = any ? Content::kDomains : none;
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

bool GetDataVersion(std::string& version) {
  return DomainDb().GetText(kSelectVersion, 0, version);
}

}  // namespace MDOMAIN::DB::INTERNAL
