// The rows wanted and those in place, both by key, side by side.
#include "lib-domain/db/owner_update.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include "platform/include/files.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

using korvmailserver::Connection;
using korvmailserver::Statement;
using korvmailserver::Transaction;

namespace {

// A writer that holds the file for longer is waited for when it is made anew; readers come to their
// end before the last step.
constexpr int kBusyMilliseconds = 1000;
constexpr int kReaderMilliseconds = 10000;
constexpr mode_t kMode = 0644;
// Up to as many rows, or this part of all, are written one by one; else all of them.
constexpr size_t kFewRows = 1000;
constexpr size_t kPartOfAll = 4;

// A registry as the store makes it, indexes included, and nothing else.
constexpr const char* kCountOwn =
    "SELECT total(name IN ('domain_part', 'local_part', 'IDX_local_part_nocase', "
    "'IDX_domain_part_nocase')) = 4 AND count(*) = 4 FROM sqlite_master WHERE sql IS NOT NULL";
constexpr const char* kVersion = "PRAGMA user_version";

// One table. The rows of a domain name have no owner.
struct Table {
  const char* select;  // rowid, text, domain index, owner; by key
  const char* insert;
  const char* remove;
  const char* clear;
};
constexpr Table kDomains = {"SELECT rowid, domain_name, domain_idx, '' FROM domain_part ORDER BY 2",
                            "INSERT INTO domain_part (domain_name, domain_idx) VALUES (?1, ?2)",
                            "DELETE FROM domain_part WHERE rowid = ?1", "DELETE FROM domain_part"};
constexpr Table kLocalParts = {
    "SELECT rowid, local_part, domain_idx, user_name FROM local_part ORDER BY 2, 3",
    "INSERT INTO local_part (local_part, domain_idx, user_name) VALUES (?1, ?2, ?3)",
    "DELETE FROM local_part WHERE rowid = ?1", "DELETE FROM local_part"};

struct Row {
  std::string_view text;
  int domain_idx;
  std::string_view owner;
};

Row RowOf(const RECORD::DomainPart& part) {
  return {part.GetDomainName(), part.GetDomainIdx(), ""};
}
Row RowOf(const RECORD::LocalPart& part) {
  return {part.GetLocalPart(), part.GetDomainIdx(), part.GetUserName()};
}

// Below 0, 0 or above 0, as one key stands before, at or behind the other.
int CompareKeys(const RECORD::DomainPart& /*kind*/, const Row& a, const Row& b) {
  return a.text.compare(b.text);
}
int CompareKeys(const RECORD::LocalPart& /*kind*/, const Row& a, const Row& b) {
  const int order = a.text.compare(b.text);
  return order != 0 ? order : int{a.domain_idx > b.domain_idx} - int{a.domain_idx < b.domain_idx};
}

// The rows by key, of one key the first; false when a text holds a zero byte.
template <typename Part>
bool Sort(const std::vector<Part>& parts, std::vector<Row>& rows) {
  const auto holds_zero = [](std::string_view text) {
    return text.find('\0') != std::string_view::npos;
  };
  rows.reserve(parts.size());
  for (const Part& part : parts) {
    rows.push_back(RowOf(part));
    if (holds_zero(rows.back().text) || holds_zero(rows.back().owner)) {
      return false;
    }
  }
  const Part kind;
  const auto is_before = [&kind](const Row& a, const Row& b) {
    return CompareKeys(kind, a, b) < 0;
  };
  if (!std::is_sorted(rows.begin(), rows.end(), is_before)) {
    std::stable_sort(rows.begin(), rows.end(), is_before);
  }
  rows.erase(std::unique(rows.begin(), rows.end(),
                         [&](const Row& a, const Row& b) { return !is_before(a, b); }),
             rows.end());
  return true;
}

struct Difference {
  std::vector<sqlite3_int64> removed;
  std::vector<Row> added;
  bool is_all = false;  // every row goes, those wanted are added

  bool IsEmpty() const { return !is_all && removed.empty() && added.empty(); }
};

// Everything where much differs, or a row in place is not of the kind that the store writes. False
// when they cannot be read.
template <typename Part>
bool Compare(sqlite3* db, const Table& table, const std::vector<Row>& wanted,
             Difference& difference) {
  const Part kind;
  auto next = wanted.begin();
  bool is_readable = true;
  const auto compare = [&](const Statement& row) {
    const sqlite3_int64 idx = row.Int64(2);
    if (row.IsNull(1) || row.IsNull(3) || !row.IsInteger(2) || idx != static_cast<int>(idx)) {
      return is_readable = false;
    }
    const std::string text = row.Text(1);
    const std::string owner = row.Text(3);
    const Row stored = {text, static_cast<int>(idx), owner};
    for (; next != wanted.end() && CompareKeys(kind, *next, stored) < 0; ++next) {
      difference.added.push_back(*next);
    }
    const bool is_wanted = next != wanted.end() && CompareKeys(kind, *next, stored) == 0;
    const bool is_same =
        is_wanted && next->domain_idx == stored.domain_idx && next->owner == stored.owner;
    if (!is_same) {
      difference.removed.push_back(row.Int64(0));
    }
    if (is_wanted && !is_same) {
      difference.added.push_back(*next);
    }
    next += is_wanted ? 1 : 0;
    return true;
  };
  Statement select(db, table.select);
  const bool is_read = select.ForEachRow(compare);
  difference.added.insert(difference.added.end(), next, wanted.end());
  const size_t changes = difference.added.size() + difference.removed.size();
  if (!is_readable || (changes > kFewRows && changes > wanted.size() / kPartOfAll)) {
    difference = {{}, wanted, true};
  }
  return is_read;
}

bool Write(sqlite3* db, const Table& table, const Difference& difference) {
  Statement clear(db, table.clear);
  Statement remove(db, table.remove);
  const bool is_removed =
      (!difference.is_all || clear.Run()) &&
      std::all_of(difference.removed.begin(), difference.removed.end(),
                  [&remove](sqlite3_int64 rowid) { return remove.Bind(1, rowid) && remove.Run(); });
  Statement insert(db, table.insert);
  const bool has_owner = table.insert == kLocalParts.insert;
  return is_removed &&
         std::all_of(difference.added.begin(), difference.added.end(),
                     [&insert, has_owner](const Row& row) {
                       return insert.Bind(1, row.text) && insert.Bind(2, row.domain_idx) &&
                              (!has_owner || insert.Bind(3, row.owner)) && insert.Run();
                     });
}

// The first column of the first row, or -1.
int Number(sqlite3* db, const char* sql) {
  Statement statement(db, sql);
  return statement.Step() == SQLITE_ROW ? statement.Int(0) : -1;
}

}  // namespace

bool IsOwnRegistryFile(const std::string& path) {
  struct stat info {};
  uid_t uid = 0;
  gid_t gid = 0;
  return lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         (info.st_mode & 07777U) == kMode &&
         mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid) >= 0 && info.st_uid == uid &&
         info.st_gid == gid;
}

bool IsOwnRegistry(sqlite3* registry) {
  return Number(registry, kCountOwn) == 1;
}

bool UpdateOwners(const std::string& path, const std::vector<RECORD::DomainPart>& domains,
                  const std::vector<RECORD::LocalPart>& local_parts, int built_from) {
  std::vector<Row> wanted_domains;
  std::vector<Row> wanted_local_parts;
  Connection registry;
  if (!Sort(domains, wanted_domains) || !Sort(local_parts, wanted_local_parts) ||
      !IsOwnRegistryFile(path) ||
      registry.Open(path, Connection::Mode::kWrite, kBusyMilliseconds) != SQLITE_OK ||
      registry.Run(kKeepPages) != SQLITE_OK) {
    return false;
  }
  sqlite3* const db = registry.Get();
  Transaction transaction(db, Transaction::Kind::kWrite);
  Difference of_domains;
  Difference of_local_parts;
  if (transaction.Begun() != SQLITE_OK || !IsOwnRegistry(db) ||
      !Compare<RECORD::DomainPart>(db, kDomains, wanted_domains, of_domains) ||
      !Compare<RECORD::LocalPart>(db, kLocalParts, wanted_local_parts, of_local_parts)) {
    return false;
  }
  if (of_domains.IsEmpty() && of_local_parts.IsEmpty() && Number(db, kVersion) == built_from) {
    return true;
  }
  const std::string remember = kVersion + (" = " + std::to_string(built_from));
  if (!Write(db, kDomains, of_domains) || !Write(db, kLocalParts, of_local_parts) ||
      registry.Run(remember.c_str()) != SQLITE_OK) {
    return false;
  }
  sqlite3_busy_timeout(db, kReaderMilliseconds);
  return transaction.Commit() == SQLITE_OK;
}

}  // namespace MDOMAIN::DB::INTERNAL
