#include "lib-domain/db/owner_follow.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <tuple>

#include "lib-domain/base/text.h"
#include "lib-domain/db/change_counter.h"
#include "lib-domain/db/owner_update.h"
#include "lib-domain/db/reader.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

using korvmailserver::Connection;
using korvmailserver::Statement;
using korvmailserver::Transaction;

namespace {

constexpr int kBusyMilliseconds = 10000;
constexpr const char* kVersion = "PRAGMA user_version";
constexpr const char* kCount =
    "SELECT (SELECT count(*) FROM domain_part), (SELECT count(*) FROM local_part)";

// One table, by a key that is compared without letter case. Names have no owner, and are not looked
// up by a domain.
struct Table {
  const char* select;  // by domain and text: rowid, text, domain, owner
  const char* insert;
  const char* remove;
};
constexpr Table kNames = {
    "SELECT rowid, domain_name, domain_idx, '' FROM domain_part WHERE "
    "?1 = ?1 AND domain_name = ?2 COLLATE NOCASE",
    "INSERT INTO domain_part (domain_idx, domain_name) VALUES (?1, ?2)",
    "DELETE FROM domain_part WHERE rowid = ?1"};
constexpr Table kLocalParts = {
    "SELECT rowid, local_part, domain_idx, user_name FROM local_part WHERE domain_idx = ?1 AND "
    "local_part = ?2 COLLATE NOCASE",
    "INSERT INTO local_part (domain_idx, local_part, user_name) VALUES (?1, ?2, ?3)",
    "DELETE FROM local_part WHERE rowid = ?1"};

struct Row {
  int domain_idx;
  std::string text;
  std::string owner;

  bool operator<(const Row& other) const {
    return std::tie(domain_idx, text, owner) < std::tie(other.domain_idx, other.text, other.owner);
  }
  bool operator==(const Row& other) const {
    return std::tie(domain_idx, text, owner) == std::tie(other.domain_idx, other.text, other.owner);
  }
};
using Rows = std::vector<Row>;
using Key = std::pair<int, std::string>;
using WantedRows = std::map<Key, Rows>;  // every key, also one that is to have none

Key KeyOf(int domain_idx, const std::string& text) {
  return {domain_idx, BASE::ToLowerAscii(text)};
}

WantedRows WantedLocalParts(const OwnerChanges& changes) {
  WantedRows wanted;
  for (const auto& [domain_idx, alias] : changes.aliases) {
    wanted[KeyOf(domain_idx, alias)];
  }
  for (const RECORD::LocalPart& part : changes.owners) {
    wanted[KeyOf(part.GetDomainIdx(), part.GetLocalPart())].push_back(
        {part.GetDomainIdx(), part.GetLocalPart(), part.GetUserName()});
  }
  return wanted;
}

WantedRows WantedNames(const OwnerChanges& changes) {
  WantedRows wanted;
  for (const std::string& name : changes.names) {
    wanted[KeyOf(0, name)];
  }
  for (const RECORD::DomainPart& part : changes.domains) {
    wanted[KeyOf(0, part.GetDomainName())].push_back(
        {part.GetDomainIdx(), part.GetDomainName(), ""});
  }
  return wanted;
}

class Writer {
 public:
  Writer(sqlite3* db, const Table& table)
      : select_(db, table.select),
        insert_(db, table.insert),
        remove_(db, table.remove),
        has_owner_(table.insert == kLocalParts.insert) {}

  // Sets `is_changed` when a row was written, and adds to `growth` how many rows there are more.
  bool Bring(const Key& key, Rows wanted, bool& is_changed, long& growth) {
    Rows stored;
    std::vector<sqlite3_int64> rowids;
    select_.Reset();
    if (!select_.Bind(1, key.first) || !select_.Bind(2, key.second) ||
        !select_.ForEachRow([&](const Statement& row) {
          rowids.push_back(row.Int64(0));
          stored.push_back({row.Int(2), row.Text(1), row.Text(3)});
        })) {
      return false;
    }
    std::sort(stored.begin(), stored.end());
    std::sort(wanted.begin(), wanted.end());
    if (stored == wanted) {
      return true;
    }
    is_changed = true;
    growth += static_cast<long>(wanted.size()) - static_cast<long>(rowids.size());
    return std::all_of(rowids.begin(), rowids.end(),
                       [this](auto id) { return remove_.Bind(1, id) && remove_.Run(); }) &&
           std::all_of(wanted.begin(), wanted.end(), [this](const Row& row) {
             return insert_.Bind(1, row.domain_idx) && insert_.Bind(2, row.text) &&
                    (!has_owner_ || insert_.Bind(3, row.owner)) && insert_.Run();
           });
  }

 private:
  Statement select_;
  Statement insert_;
  Statement remove_;
  bool has_owner_;
};

bool Write(sqlite3* db, const Table& table, const WantedRows& wanted, bool& is_changed,
           long& growth) {
  Writer writer(db, table);
  return std::all_of(wanted.begin(), wanted.end(), [&](const auto& entry) {
    return writer.Bring(entry.first, entry.second, is_changed, growth);
  });
}

bool ReadState(sqlite3* db, OwnerState& state) {
  Statement version(db, kVersion);
  if (version.Step() != SQLITE_ROW) {
    return false;
  }
  state.built_from = version.Int(0);
  return ReadChangeCounter(db, state.counter);
}

}  // namespace

std::string OwnerState::Text() const {
  std::string text = std::to_string(built_from) + " " + std::to_string(counter);
  return IsCounted() ? text + " " + std::to_string(domains) + " " + std::to_string(local_parts)
                     : text;
}

OwnerState OwnerStateOf(const std::string& text) {
  OwnerState state;
  std::istringstream numbers(text);
  if (!(numbers >> state.built_from >> state.counter)) {
    return {};
  }
  if (!(numbers >> state.domains >> state.local_parts)) {
    state.domains = state.local_parts = -1;
  }
  return state;
}

bool ReadOwnerState(const std::string& path, OwnerState& state) {
  state = OwnerState();
  Reader reader(path);
  return reader.Open() && reader.ForEachRow(kVersion, [&](const Statement& row) {
    state.built_from = row.Int(0);
    ReadChangeCounter(reader.Get(), state.counter);
  });
}

bool ApplyOwnerChanges(const std::string& path, const OwnerChanges& changes, int built_from,
                       OwnerState& state) {
  Connection registry;
  if (!IsOwnRegistryFile(path) ||
      registry.Open(path, Connection::Mode::kWrite, kBusyMilliseconds) != SQLITE_OK ||
      registry.Run(kKeepPages) != SQLITE_OK) {
    return false;
  }
  sqlite3* const db = registry.Get();
  Transaction transaction(db, Transaction::Kind::kWrite);
  OwnerState found;
  bool is_changed = false;
  long more_domains = 0;
  long more_local_parts = 0;
  if (transaction.Begun() != SQLITE_OK || !IsOwnRegistry(db) || !ReadState(db, found) ||
      found.built_from != state.built_from ||
      !Write(db, kNames, WantedNames(changes), is_changed, more_domains) ||
      !Write(db, kLocalParts, WantedLocalParts(changes), is_changed, more_local_parts)) {
    return false;
  }
  const bool is_ours = found == state;
  if (is_changed) {
    const std::string remember = kVersion + (" = " + std::to_string(built_from));
    if (registry.Run(remember.c_str()) != SQLITE_OK || transaction.Commit() != SQLITE_OK ||
        !ReadState(db, found)) {
      return false;
    }
  }
  const bool is_counted = is_ours && state.IsCounted();
  state = {found.built_from, is_ours ? found.counter : 0,
           is_counted ? state.domains + more_domains : -1,
           is_counted ? state.local_parts + more_local_parts : -1};
  return true;
}

bool CountOwners(const std::string& path, OwnerState& state) {
  OwnerState now;
  if (!ReadOwnerState(path, now)) {
    return false;
  }
  if (now == state && state.IsCounted()) {
    return true;
  }
  Reader reader(path);
  return reader.Open() && reader.ForEachRow(kCount, [&state](const Statement& row) {
    state.domains = static_cast<long>(row.Int64(0));
    state.local_parts = static_cast<long>(row.Int64(1));
  });
}

}  // namespace MDOMAIN::DB::INTERNAL
