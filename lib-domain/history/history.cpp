#include "lib-domain/history/history.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <sstream>

#include "lib-domain/base/text.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/history/domain_part.h"
#include "lib-domain/history/history_file.h"
#include "lib-domain/history/kept_changes.h"

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::Statement;
using korvmailserver::Transaction;

constexpr Json::ArrayIndex kSentencesKept = 1000;
constexpr size_t kMostBytesKept = 16U << 20U;
constexpr int kUndoable = 50;  // of the newest entries what takes them back is kept

constexpr char kTooMuch[] = "it changed too much";

constexpr char kInsert[] =
    "INSERT INTO entry_table(time, person, command, summary, state, why_kept, plan, changes)"
    " VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)";
// Each entry makes the one forget that becomes too old by it: no look at all that are older.
constexpr char kForgetChanges[] =
    "UPDATE entry_table SET changes = x'', why_kept = 'it is too long ago'"
    " WHERE id BETWEEN (SELECT max(id) FROM entry_table) - 2 * ?1 AND (SELECT max(id) FROM"
    " entry_table) - ?1 AND length(changes) > 0";
constexpr char kForget[] =
    "DELETE FROM entry_table WHERE id <= (SELECT max(id) FROM entry_table) - ?1";
constexpr char kSelectOne[] = "SELECT " HISTORY_ENTRY_COLUMNS
                              ", plan FROM entry_table"
                              " WHERE id = ?1";

// What was done under an index that stood for another domain is told as the host's.
constexpr char kLeaveDomain[] =
    "INSERT OR IGNORE INTO entry_domain_table(domain_idx, id)"
    " SELECT 0, id FROM entry_domain_table WHERE domain_idx = ?1";
constexpr char kLeftDomain[] = "DELETE FROM entry_domain_table WHERE domain_idx = ?1";
constexpr char kInsertDomain[] =
    "INSERT INTO entry_domain_table(domain_idx, id) VALUES(?1, last_insert_rowid())";
constexpr char kForgetDomains[] =
    "DELETE FROM entry_domain_table WHERE id <= (SELECT max(id) FROM entry_table) - ?1";
constexpr char kHasDomains[] = "SELECT 1 FROM sqlite_master WHERE name = 'entry_domain_table'";

std::string PlanText(const Plan& plan) {
  Json::Value kept(Json::arrayValue);
  for (Json::ArrayIndex i = 0; i < plan.entries.size() && i < kSentencesKept; ++i) {
    kept.append(plan.entries[i]);
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, kept);
}

Json::Value ParsePlan(const std::string& text) {
  Json::Value plan;
  std::istringstream stream(text);
  std::string error;
  return Json::parseFromStream(Json::CharReaderBuilder(), stream, &plan, &error) && plan.isArray()
             ? plan
             : Json::Value(Json::arrayValue);
}

std::string WhyNotKept(const Entry& entry, const Changes& changes) {
  if (!entry.why_kept.empty()) {
    return entry.why_kept;
  }
  const bool has_keys = std::any_of(changes.files.begin(), changes.files.end(),
                                    [](const FileChange& file) { return !file.IsKept(); });
  return !changes.is_whole ? kTooMuch
         : has_keys        ? "it changed DKIM keys, which the history does not keep"
                           : "";
}

bool HasRow(sqlite3* db, const char* sql) {
  Statement select(db, sql);
  return select.Step() == SQLITE_ROW;
}

bool RunWith(sqlite3* db, const char* sql, int number) {
  Statement statement(db, sql);
  return statement.Bind(1, number) && statement.Run();
}

bool AddDomains(sqlite3* db, const Changes& changes) {
  bool is_added = true;
  for (const int idx : ReplacedDomains(changes)) {
    is_added = is_added && RunWith(db, kLeaveDomain, idx) && RunWith(db, kLeftDomain, idx);
  }
  for (const int idx : DomainsOf(changes)) {
    is_added = is_added && RunWith(db, kInsertDomain, idx);
  }
  return is_added;
}

// The condition that a filter stands for; none of its values is a text.
std::string ConditionOf(const EntryFilter& filter) {
  std::string condition = "1";
  if (filter.domain_idx != 0) {
    condition += " AND id IN (SELECT id FROM entry_domain_table WHERE domain_idx = " +
                 std::to_string(filter.domain_idx) + ")";
  }
  if (filter.only_domains) {
    condition +=
        " AND id IN (SELECT id FROM entry_domain_table GROUP BY id HAVING min(domain_idx IN (" +
        BASE::Join(std::vector<int>(filter.only_domains->begin(), filter.only_domains->end()),
                   ", ") +
        ")))";
  }
  return condition;
}

// Rows of the entries for which `condition` holds. False with one log line.
bool ForEachEntry(const EntryFilter& filter, const std::string& columns, const std::string& rest,
                  const std::function<void(const Statement& row)>& use) {
  HistoryFile file;
  if (!file.OpenForReading()) {
    return false;
  }
  const bool needs_domains = filter.domain_idx != 0 || filter.only_domains;
  if (file.Get() == nullptr || (needs_domains && !HasRow(file.Get(), kHasDomains))) {
    return true;
  }
  Statement select(file.Get(),
                   "SELECT " + columns + " FROM entry_table WHERE " + ConditionOf(filter) + rest);
  return select.ForEachRow(use) || file.Fail();
}

}  // namespace

Entry EntryOf(const Statement& row) {
  Entry entry;
  entry.id = row.Int64(0);
  entry.time = row.Int64(1);
  entry.person = row.Text(2);
  entry.command = row.Text(3);
  entry.summary = row.Text(4);
  entry.state = row.Text(5);
  entry.why_kept = row.Text(6);
  return entry;
}

std::string ModelName() {
  std::string path;
  return UTILS::GetUserGroupDomainConfigPath(path) ? path.substr(path.rfind('/') + 1) : "";
}

bool AddEntry(const Entry& entry, const Changes& changes, const Plan& plan) {
  std::string why = WhyNotKept(entry, changes);
  std::string bytes = why.empty() ? ToBytes(changes, ModelName()) : "";
  if (bytes.size() > kMostBytesKept) {
    why = kTooMuch;
    bytes.clear();
  }
  HistoryFile file;
  if (!file.OpenForWriting()) {
    return false;
  }
  Transaction transaction(file.Get(), Transaction::Kind::kWrite);
  Statement insert(file.Get(), kInsert);
  insert.Bind(1, entry.time);
  insert.Bind(2, entry.person);
  insert.Bind(3, entry.command);
  insert.Bind(4, entry.summary);
  insert.Bind(5, entry.state);
  insert.Bind(6, why);
  insert.Bind(7, PlanText(plan));
  insert.BindBytes(8, bytes);
  const bool is_added = insert.Run() && AddDomains(file.Get(), changes) &&
                        RunWith(file.Get(), kForgetChanges, kUndoable) &&
                        RunWith(file.Get(), kForgetDomains, kEntriesKept) &&
                        RunWith(file.Get(), kForget, kEntriesKept);
  return (is_added && transaction.Commit() == SQLITE_OK) || file.Fail();
}

bool ListEntries(int limit, std::vector<Entry>& entries) {
  return ForEachEntry({}, HISTORY_ENTRY_COLUMNS, " ORDER BY id DESC LIMIT " + std::to_string(limit),
                      [&](const Statement& row) { entries.push_back(EntryOf(row)); });
}

bool ListEntries(const EntryFilter& filter, std::vector<Entry>& entries, size_t& total) {
  total = 0;
  return ForEachEntry(filter, "count(*)", "",
                      [&](const Statement& row) { total = static_cast<size_t>(row.Int64(0)); }) &&
         ForEachEntry(filter, HISTORY_ENTRY_COLUMNS,
                      " ORDER BY id DESC LIMIT " + std::to_string(filter.limit) + " OFFSET " +
                          std::to_string(filter.offset),
                      [&](const Statement& row) { entries.push_back(EntryOf(row)); });
}

bool HasEntry(long long id, const EntryFilter& filter, bool& has) {
  has = false;
  return ForEachEntry(filter, "id", " AND id = " + std::to_string(id),
                      [&has](const Statement& /*row*/) { has = true; });
}

bool ReadEntry(long long id, bool& found, Entry& entry, Json::Value& plan) {
  found = false;
  HistoryFile file;
  if (!file.OpenForReading()) {
    return false;
  }
  if (file.Get() == nullptr) {
    return true;
  }
  Statement select(file.Get(), kSelectOne);
  select.Bind(1, id);
  return select.ForEachRow([&](const Statement& row) {
    found = true;
    entry = EntryOf(row);
    plan = ParsePlan(row.Text(7));
  }) || file.Fail();
}

}  // namespace MDOMAIN::HISTORY
