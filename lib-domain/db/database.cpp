// Runs queries and batches and logs their failures in the name of the store that calls.
#include "lib-domain/db/database.h"

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

bool Int::Read(const std::string& cell, int& value, SourceHere here) {
  if (!BASE::ConvertToInt(cell, value)) {
    LOG_ERROR_AT(here.file, here.line, "Failed to stoi [%s]", cell.c_str());
    return false;
  }
  return true;
}

bool Uid::Read(const std::string& cell, unsigned int& uid, SourceHere here) {
  if (!BASE::ConvertToUID(cell, uid)) {
    LOG_ERROR_AT(here.file, here.line, "failed to convert %s to uid", cell.c_str());
    return false;
  }
  return true;
}

bool Gid::Read(const std::string& cell, unsigned int& gid, SourceHere here) {
  if (!BASE::ConvertToGID(cell, gid)) {
    LOG_ERROR_AT(here.file, here.line, "failed to convert %s to gid", cell.c_str());
    return false;
  }
  return true;
}

bool Database::IsOpen(SourceHere here) const {
  if (status_ != 0 || !handler_->FollowFile()) {
    LOG_ERROR_AT(here.file, here.line, "Open domainDBHandler cannot open before");
    return false;
  }
  return true;
}

bool Database::GetText(const std::string& sql, size_t column, std::string& text,
                       SourceHere here) const {
  Rows rows;
  if (!Select(sql, column + 1, rows, here)) {
    return false;
  }
  if (!rows.empty()) {
    text = rows.back()[column];
  }
  return true;
}

bool Database::GetExists(const std::string& sql, bool& exists, SourceHere here) const {
  std::string cell;
  if (!GetText(sql, 0, cell, here)) {
    return false;
  }
  exists = cell == "1";
  return true;
}

bool Database::GetCount(const DomainDBFilter& filter, const char* view, const char* select,
                        int& count, SourceHere here) const {
  DomainDBFilter own = filter;
  own.SetTableName(view);
  own.SetSelect(select);
  return Query<Columns<Int>>(
      own.ComposeQueryCmd(), [&count](int value) { count = value; }, here);
}

bool Database::GetTableCount(const char* table, int& count, SourceHere here) const {
  if (!IsOpen(here)) {
    return false;
  }
  count = handler_->GetTableDataCount(table);
  return true;
}

bool Database::Run(const StatementBatch& batch, const char* failure, SourceHere here) const {
  if (!IsOpen(here)) {
    return false;
  }
  if (batch.Fits() && handler_->exeCmds(batch.Statements(), true) == 0) {
    return true;
  }
  // A warning, as the store's one error line is fixed and does not say why.
  MDOMAIN_LOG_AT(BASE::kLogWarning, here.file, here.line, "Cannot write to database [%s]: %s",
                 handler_->GetPath().c_str(),
                 batch.Fits() ? handler_->GetErrText().c_str() : "a statement is too long");
  LOG_ERROR_AT(here.file, here.line, "%s", failure);
  return false;
}

// Replaces `rows` by the result, every row at least `columns` long; else they are empty.
bool Database::Select(const std::string& sql, size_t columns, Rows& rows, SourceHere here) const {
  if (!IsOpen(here)) {
    return false;
  }
  try {
    if (!sql.empty()) {
      rows = handler_->ExecSelectCmd(sql);
      if (rows.empty() || rows.front().size() >= columns) {
        return true;
      }
    }
  } catch (const korvmailserver::LogException&) {
    // It has logged its own line with the reason.
  }
  rows.clear();
  LOG_ERROR_AT(here.file, here.line, "failed to ExecSelectCmd");
  return false;
}

}  // namespace MDOMAIN::DB::INTERNAL
