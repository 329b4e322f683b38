#include "lib-domain/history/names.h"

#include <algorithm>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/handler.h"
#include "platform/include/files.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::SqlRow;
using korvmailserver::SqlValue;
using korvmailserver::Statement;
using korvmailserver::TableChange;

constexpr char kUserName[] = "SELECT user_name FROM user_table WHERE uid = ?1";
constexpr char kGroupName[] = "SELECT group_name FROM group_table WHERE gid = ?1";
constexpr char kDomainName[] = "SELECT domain_name FROM domain_table WHERE domain_idx = ?1";
constexpr char kOwner[] =
    "SELECT user_name FROM domain_user_alias_table JOIN user_table USING(uid)"
    " WHERE domain_idx = ?1 AND account_alias = ?2 COLLATE NOCASE AND NOT is_duplicated LIMIT 1";
// The latest name that the rows have for each number.
void TakeNames(const TableChange& table, const char* id, const char* name,
               std::map<std::string, std::string>& names) {
  for (const auto& row : table.rows) {
    const SqlRow& side = row.after.empty() ? row.before : row.after;
    names[TextOf(table, side, id)] = TextOf(table, side, name);
  }
}

}  // namespace

std::string TextOf(const TableChange& table, const SqlRow& row, const std::string& column) {
  const auto found = std::find(table.columns.begin(), table.columns.end(), column);
  const auto at = static_cast<size_t>(found - table.columns.begin());
  if (at >= row.size()) {
    return "";
  }
  const SqlValue& value = row[at];
  return value.type == SqlValue::Type::kInteger ? std::to_string(value.integer) : value.bytes;
}

Names::Names(const std::string& model_path, const Changes& changes) : model_path_(model_path) {
  for (const TableChange& table : changes.tables) {
    is_model_changed_ = is_model_changed_ || table.path == model_path_;
    if (table.table == "user_table") {
      TakeNames(table, "uid", "user_name", users_);
    } else if (table.table == "group_table") {
      TakeNames(table, "gid", "group_name", groups_);
    } else if (table.table == "domain_table") {
      TakeNames(table, "domain_idx", "domain_name", domains_);
    }
  }
}

// Through the connection that changed this model, where one did: opening another one costs more
// than all the names.
bool Names::Open() {
  constexpr int kBusyMilliseconds = 10000;
  if (!postara::sdk::Exist(model_path_)) {
    return true;
  }
  DB::DomainDBHandler* const handler =
      is_model_changed_ ? DB::DomainDBHandler::GetDomainDBHandler() : nullptr;
  if (handler != nullptr && handler->GetPath() == model_path_ && handler->FollowFile()) {
    db_ = handler->getDB();
    return true;
  }
  if (model_.Open(model_path_, korvmailserver::Connection::Mode::kRead, kBusyMilliseconds) ==
      SQLITE_OK) {
    db_ = model_.Get();
    return true;
  }
  LOG_ERROR("Cannot read [%s]: %s", model_path_.c_str(), model_.Error().c_str());
  return false;
}

std::string Names::User(const std::string& uid) {
  return _Name(users_, uid, kUserName, "uid ");
}

std::string Names::Group(const std::string& gid) {
  return _Name(groups_, gid, kGroupName, "gid ");
}

std::string Names::Domain(const std::string& domain_idx) {
  return _Name(domains_, domain_idx, kDomainName, "domain ");
}

std::string Names::AliasOwner(const std::string& domain_idx, const std::string& alias) {
  return _First(kOwner, {domain_idx, alias});
}

std::string Names::_Name(Known& known, const std::string& id, const char* sql, const char* kind) {
  const auto [entry, is_new] = known.try_emplace(id);
  if (is_new) {
    entry->second = _First(sql, {id});
  }
  return entry->second.empty() ? kind + id : entry->second;
}

// Numbers come as text: SQLite compares them as numbers with a column of numbers.
std::string Names::_First(const char* sql, const std::vector<std::string>& values) {
  if (db_ == nullptr) {
    return "";
  }
  Statement& statement = compiled_.Get(db_, sql);
  for (size_t i = 0; i < values.size(); ++i) {
    statement.Bind(static_cast<int>(i) + 1, values[i]);
  }
  std::string first = statement.Step() == SQLITE_ROW ? statement.Text(0) : "";
  statement.Reset();
  return first;
}

}  // namespace MDOMAIN::HISTORY
