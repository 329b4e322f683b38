#include "lib-domain/history/domain_part.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

#include "lib-domain/base/text.h"
#include "lib-domain/history/names.h"
#include "lib-domain/sync/mail_settings.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::RowChange;
using korvmailserver::SqlRow;
using korvmailserver::TableChange;

constexpr const char* kFollowing = "mimedefang_enable";  // from the lists of disclaimers

// "dkim_selector-7" and "dkim.key/dkim.private-7" are about domain 7.
int IndexBehind(const std::string& name) {
  int idx = kHost;
  const size_t dash = name.rfind('-');
  return dash != std::string::npos && MDOMAIN::BASE::ConvertToInt(name.substr(dash + 1), idx) &&
                 idx > 0
             ? idx
             : kHost;
}

// None for a row that says nothing about whom a change is for.
std::optional<int> DomainOf(const TableChange& table, const SqlRow& row) {
  if (table.table == "key_table") {
    const std::string key = TextOf(table, row, "name");
    const bool is_known = UTILS::KindOfKey(key) != UTILS::KeyKind::kUnknown;
    return key == kFollowing ? std::nullopt
                             : std::make_optional(is_known ? IndexBehind(key) : kHost);
  }
  int idx = kHost;
  const std::string text = TextOf(table, row, "domain_idx") +
                           TextOf(table, row, "domain_id");  // a table has one of them
  return MDOMAIN::BASE::ConvertToInt(text, idx) && idx > 0 ? idx : kHost;
}

template <typename Use>
void ForEachSide(const TableChange& table, const RowChange& row, const Use& use) {
  for (const SqlRow* side : {&row.before, &row.after}) {
    if (!side->empty()) {
      use(DomainOf(table, *side));
    }
  }
}

}  // namespace

std::set<int> DomainsOf(const Changes& changes) {
  std::set<int> domains;
  for (const TableChange& table : changes.tables) {
    for (const RowChange& row : table.rows) {
      ForEachSide(table, row, [&](std::optional<int> idx) {
        if (idx) {
          domains.insert(*idx);
        }
      });
    }
  }
  for (const FileChange& file : changes.files) {
    domains.insert(IndexBehind(file.path));
  }
  return domains;
}

Changes PartOf(const Changes& changes, const std::set<int>& domains) {
  Changes part;
  part.is_whole = changes.is_whole;
  for (const TableChange& table : changes.tables) {
    TableChange kept{table.path, table.table, table.columns, {}};
    // Each side by itself: a row's number may have been another domain's before.
    const auto side = [&](const SqlRow& row) {
      const std::optional<int> idx = row.empty() ? std::nullopt : DomainOf(table, row);
      return idx && domains.count(*idx) != 0 ? row : SqlRow();
    };
    for (const RowChange& row : table.rows) {
      RowChange own{row.rowid, side(row.before), side(row.after)};
      if (!own.before.empty() || !own.after.empty()) {
        kept.rows.push_back(std::move(own));
      }
    }
    if (!kept.rows.empty()) {
      part.tables.push_back(std::move(kept));
    }
  }
  std::copy_if(changes.files.begin(), changes.files.end(), std::back_inserter(part.files),
               [&](const FileChange& file) { return domains.count(IndexBehind(file.path)) != 0; });
  return part;
}

std::set<int> ReplacedDomains(const Changes& changes) {
  std::set<int> replaced;
  for (const TableChange& table : changes.tables) {
    for (const RowChange& row : table.rows) {
      if (table.table == "domain_table" && (row.before.empty() || row.after.empty())) {
        ForEachSide(table, row,
                    [&](std::optional<int> idx) { replaced.insert(idx.value_or(kHost)); });
      }
    }
  }
  return replaced;
}

}  // namespace MDOMAIN::HISTORY
