// Runs queries and batches and logs their failures in the name of the store that calls.
#include "lib-domain/db/database.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler_state.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

constexpr const char* kSelectVersion = "PRAGMA data_version";

// SQLite gives a number as the text that stands for it; only other cells are worth reading as text.
template <typename Value, typename Convert>
bool IsNumber(const Cells& row, int column, Value& value, const Convert& convert) {
  if (row.IsInteger(column)) {
    const sqlite3_int64 number = row.Int64(column);
    if (number >= std::numeric_limits<Value>::min() &&
        number <= std::numeric_limits<Value>::max()) {
      value = static_cast<Value>(number);
      return true;
    }
  }
  return convert(row.Text(column), value);
}

bool AreSame(const DomainNames& names, const DomainNames& others) {
  return names.additional == others.additional &&
         std::equal(names.domains.begin(), names.domains.end(), others.domains.begin(),
                    others.domains.end(),
                    [](const RECORD::Domain& one, const RECORD::Domain& other) {
                      return one.GetDomainIdx() == other.GetDomainIdx() &&
                             one.GetDomainName() == other.GetDomainName() &&
                             one.IsPrimary() == other.IsPrimary();
                    });
}

}  // namespace

bool Int::Read(const std::string& cell, int& value, SourceHere here) {
  if (!BASE::ConvertToInt(cell, value)) {
    LOG_ERROR_AT(here.file, here.line, "Failed to stoi [%s]", cell.c_str());
    return false;
  }
  return true;
}

bool Int::Read(const Cells& row, int column, int& value, SourceHere here) {
  return IsNumber(row, column, value, BASE::ConvertToInt) || Read(row.Text(column), value, here);
}

bool Uid::Read(const Cells& row, int column, unsigned int& uid, SourceHere here) {
  if (!IsNumber(row, column, uid, BASE::ConvertToUID)) {
    LOG_ERROR_AT(here.file, here.line, "failed to convert %s to uid", row.Text(column).c_str());
    return false;
  }
  return true;
}

bool Gid::Read(const Cells& row, int column, unsigned int& gid, SourceHere here) {
  if (!IsNumber(row, column, gid, BASE::ConvertToGID)) {
    LOG_ERROR_AT(here.file, here.line, "failed to convert %s to gid", row.Text(column).c_str());
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

bool Database::TryForEachRow(const Sql& sql,
                             const std::function<void(const Cells& row)>& use) const {
  const auto use_row = [&use](const Cells& row) {
    use(row);
    return true;
  };
  const korvmailserver::UnkeptDatabaseFailures unkept;
  return status_ == 0 && sql.Fits() && handler_->FollowFile() &&
         handler_->_RunKept(sql, use_row, DomainDBHandler::OnFailure::kStaySilent);
}

bool Database::GetText(const Sql& sql, int column, std::string& text, SourceHere here) const {
  std::string cell;
  bool has_row = false;
  const auto keep = [&](const Cells& row) {
    cell = row.Text(column);
    return has_row = true;
  };
  if (!Select(sql, column + 1, keep, here)) {
    return false;
  }
  if (has_row) {
    text.swap(cell);
  }
  return true;
}

bool Database::GetExists(const Sql& sql, bool& exists, SourceHere here) const {
  std::string cell;
  if (!GetText(sql, 0, cell, here)) {
    return false;
  }
  exists = cell == "1";
  return true;
}

bool Database::GetExistsInSchema(const char* sql, bool& exists, SourceHere here) const {
  return IsOpen(here) && Remember(*handler_, &korvmailserver::DatabaseNumbers::schema,
                                  handler_->_State().memory.in_schema[sql], exists,
                                  [&](bool& found) { return GetExists(sql, found, here); });
}

bool Database::ShareNames(const std::function<bool(DomainNames&)>& read,
                          std::shared_ptr<const DomainNames>& names) const {
  korvmailserver::DatabaseNumbers numbers;
  if (status_ != 0 || !handler_->FollowFile() || !ReadNumbers(*handler_, numbers)) {
    return false;
  }
  HandlerState& state = handler_->_State();
  KeptNames& kept = state.memory.names;
  if (kept.names != nullptr && kept.changes == numbers.changes) {
    names = kept.names;
    return true;
  }
  const ReadScope with_its_numbers(handler_);
  long long version = 0;
  if (!TryForEachRow(Sql(kSelectVersion), [&](const Cells& row) { version = row.Int64(0); }) ||
      !ReadNumbers(*handler_, numbers)) {
    return false;
  }
  if (kept.names == nullptr || kept.version != version || kept.own != state.name_changes) {
    auto found = std::make_shared<DomainNames>();
    if (!read(*found)) {
      return false;
    }
    // What was made of the names is known by the object.
    const bool are_same = kept.names != nullptr && AreSame(*kept.names, *found);
    kept = {are_same ? kept.names : found, 0, version, state.name_changes};
  }
  kept.changes = numbers.changes;
  names = kept.names;
  return true;
}

bool Database::RememberCount(const std::string& what, const std::function<bool(int&)>& read,
                             int& count) const {
  if (status_ != 0 || !handler_->FollowFile()) {
    return read(count);
  }
  auto& counts = handler_->_State().memory.counts;
  if (counts.size() >= kMostCounts) {
    counts.clear();
  }
  return Remember(*handler_, &korvmailserver::DatabaseNumbers::changes, counts[what], count, read);
}

bool Database::RememberList(const std::string& what, const UidReader& read,
                            std::vector<unsigned int>& uids, bool& has_list) const {
  const bool is_wanted = std::exchange(has_list, false);
  korvmailserver::DatabaseNumbers numbers;
  if (status_ != 0 || !handler_->FollowFile() || !ReadNumbers(*handler_, numbers)) {
    return true;
  }
  Memory& memory = handler_->_State().memory;
  if (memory.lists.size() >= kMostLists && memory.lists.count(what) == 0) {
    const auto is_sooner_missed = [](const auto& one, const auto& other) {
      return std::pair(one.second.whole.has_value(), one.second.turn) <
             std::pair(other.second.whole.has_value(), other.second.turn);
    };
    memory.lists.erase(
        std::min_element(memory.lists.begin(), memory.lists.end(), is_sooner_missed));
  }
  AskedList& asked = memory.lists[what];
  has_list = is_wanted || asked.asked_at == numbers.changes || asked.whole.has_value();
  asked.asked_at = numbers.changes;
  asked.turn = ++memory.last_turn;
  return !has_list ||
         Remember(*handler_, &korvmailserver::DatabaseNumbers::changes, asked.whole, uids, read);
}

bool Database::GetRememberedSize(const std::string& what, int& size) const {
  korvmailserver::DatabaseNumbers numbers;
  if (status_ != 0 || !handler_->FollowFile() || !ReadNumbers(*handler_, numbers)) {
    return false;
  }
  const auto& lists = handler_->_State().memory.lists;
  const auto asked = lists.find(what);
  const bool is_known =
      asked != lists.end() && asked->second.whole && asked->second.whole->first == numbers.changes;
  if (is_known) {
    size = static_cast<int>(asked->second.whole->second.size());
  }
  return is_known;
}

bool Database::GetCount(const DomainDBFilter& filter, const char* view, const char* select,
                        int& count, SourceHere here) const {
  DomainDBFilter own = filter;
  own.SetTableName(view);
  own.SetSelect(select);
  const std::string command = own.ComposeQueryCmd();
  const auto read = [&](int& counted) {
    return Query<Columns<Int>>(
        command, [&counted](int value) { counted = value; }, here);
  };
  return RememberCount(command, read, count);
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
  if (sqlite3_get_autocommit(handler_->getDB()) != 0 && !handler_->IsOfSourceInForce()) {
    LOG_ERROR_AT(here.file, here.line, "%s", failure);
    return false;
  }
  batch.KeepIn(handler_->_State().kept);
  if (batch.Fits() && handler_->exeSteps(batch.Steps()) == 0) {
    return true;
  }
  // A warning, as the store's one error line is fixed and does not say why.
  MDOMAIN_LOG_AT(BASE::kLogWarning, here.file, here.line, "Cannot write to database [%s]: %s",
                 handler_->GetPath().c_str(),
                 batch.Fits() ? handler_->GetErrText().c_str() : "a statement is too long");
  LOG_ERROR_AT(here.file, here.line, "%s", failure);
  return false;
}

bool Database::TryRun(const StatementBatch& batch) const {
  if (status_ != 0 || !handler_->FollowFile()) {
    return false;
  }
  const korvmailserver::UnkeptDatabaseFailures unkept;
  batch.KeepIn(handler_->_State().kept);
  return batch.Fits() && handler_->exeSteps(batch.Steps()) == 0;
}

bool Database::Select(const Sql& sql, int columns, const std::function<bool(const Cells&)>& use,
                      SourceHere here) const {
  if (!IsOpen(here)) {
    return false;
  }
  bool is_wide_enough = sql.Fits();
  bool is_used = true;
  try {
    if (is_wide_enough) {
      handler_->ForEachRow(sql, [&](const Cells& row) {
        is_wide_enough = row.Columns() >= columns;
        is_used = is_wide_enough && use(row);
        return is_used;
      });
    }
  } catch (const korvmailserver::LogException&) {
    is_wide_enough = false;  // it has logged its own line with the reason
  }
  if (!is_wide_enough) {
    LOG_ERROR_AT(here.file, here.line, "failed to ExecSelectCmd");
  }
  return is_wide_enough && is_used;
}

}  // namespace MDOMAIN::DB::INTERNAL
