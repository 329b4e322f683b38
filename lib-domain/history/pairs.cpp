#include "lib-domain/history/pairs.h"

#include "lib-domain/history/names.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::RowChange;
using korvmailserver::SqlRow;
using korvmailserver::TableChange;

using Values = std::vector<std::string>;

Values ValuesIn(const TableChange& table, const SqlRow& row, const Values& columns) {
  Values values;
  for (const std::string& column : columns) {
    values.push_back(TextOf(table, row, column));
  }
  return values;
}

// By which columns a table's rows are known; none: by their numbers.
const Values& KeyOf(const std::string& table) {
  static const std::map<std::string, Values> kKeys = {
      {"domain_to_additional_domain_table", {"domain_idx", "additional_domain"}},
      {"group_to_user_table", {"gid", "uid"}},
      {"domain_user_role_table", {"domain_idx", "uid"}},
      {"domain_user_alias_table", {"domain_idx", "uid", "account_alias"}},
      {"domain_group_role_table", {"domain_idx", "gid"}},
      {"domain_group_removed_user_table", {"domain_idx", "gid", "uid"}},
      {"alias_table", {"domain_id", "name"}},
      {"alias_member_table", {"domain_id", "alias", "kind", "member"}},
      {"bcc_table", {"domain_id", "type", "name"}},
      {"key_table", {"name"}},
  };
  static const Values kNone;
  const auto found = kKeys.find(table);
  return found == kKeys.end() ? kNone : found->second;
}

TableChange PairedRows(const TableChange& table) {
  const Values& key = KeyOf(table.table);
  if (key.empty()) {
    return table;
  }
  std::map<Values, RowChange> pairs;
  for (const RowChange& row : table.rows) {
    if (!row.before.empty()) {
      pairs[ValuesIn(table, row.before, key)].before = row.before;
    }
    if (!row.after.empty()) {
      pairs[ValuesIn(table, row.after, key)].after = row.after;
    }
  }
  TableChange paired{table.path, table.table, table.columns, {}};
  for (auto& [values, row] : pairs) {
    if (!(row.before == row.after)) {
      paired.rows.push_back(std::move(row));
    }
  }
  return paired;
}

}  // namespace

Changes Paired(const Changes& changes) {
  Changes paired;
  paired.files = changes.files;
  paired.is_whole = changes.is_whole;
  for (const TableChange& table : changes.tables) {
    paired.tables.push_back(PairedRows(table));
  }
  return paired;
}

std::map<Values, Sides> SidesOf(const Changes& changes, const char* table_name, const Values& keys,
                                const char* value) {
  std::map<Values, Sides> sides;
  for (const TableChange& table : changes.tables) {
    if (table.table != table_name) {
      continue;
    }
    for (const RowChange& row : table.rows) {
      if (!row.before.empty()) {
        sides[ValuesIn(table, row.before, keys)].before = TextOf(table, row.before, value);
      }
      if (!row.after.empty()) {
        sides[ValuesIn(table, row.after, keys)].after = TextOf(table, row.after, value);
      }
    }
  }
  return sides;
}

}  // namespace MDOMAIN::HISTORY
