// The alias table's SQLite store. Each change is one transaction on a connection of its own; the
// loaded entries follow it, so a caller sees its own changes without loading again.
#include "platform/include/alias.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "platform/include/batch_scope.h"
#include "platform/include/db_handler.h"
#include "platform/include/files.h"
#include "platform/include/kept_database.h"
#include "platform/include/lost_database.h"
#include "platform/include/maillog.h"
#include "platform/include/sqlite.h"
#include "platform/include/text.h"

namespace {

using korvmailserver::CompiledStatements;
using korvmailserver::IsDatabaseLost;
using korvmailserver::KeptDatabase;
using korvmailserver::Statement;
using korvmailserver::ToLowerAscii;
using korvmailserver::Transaction;

constexpr char kSchema[] =
    "create table alias_table(name TEXT NOT NULL, domain_id INTEGER NOT NULL,"
    " PRIMARY KEY(domain_id, name));"
    "create table alias_member_table(alias TEXT NOT NULL, domain_id INTEGER NOT NULL,"
    " kind TEXT NOT NULL, member TEXT NOT NULL, PRIMARY KEY(domain_id, alias, kind, member));";
constexpr char kSelectEntries[] =
    "SELECT name, domain_id FROM alias_table ORDER BY domain_id, name";
constexpr char kSelectMembers[] =
    "SELECT alias, domain_id, kind, member FROM alias_member_table"
    " ORDER BY domain_id, alias, rowid";

constexpr char kInsertEntry[] = "INSERT OR IGNORE INTO alias_table(domain_id, name) VALUES(?1, ?2)";
constexpr char kInsertMember[] =
    "INSERT OR IGNORE INTO alias_member_table(domain_id, alias, kind, member)"
    " VALUES(?1, ?2, ?3, ?4)";
constexpr char kDeleteEntry[] = "DELETE FROM alias_table WHERE domain_id = ?1 AND name = ?2";
constexpr char kDeleteMembersOfEntry[] =
    "DELETE FROM alias_member_table WHERE domain_id = ?1 AND alias = ?2";
constexpr char kDeleteDomain[] = "DELETE FROM alias_table WHERE domain_id = ?1";
constexpr char kDeleteMembersOfDomain[] = "DELETE FROM alias_member_table WHERE domain_id = ?1";
// Followed by a parameter for each name, and ")".
constexpr char kDeleteMembers[] =
    "DELETE FROM alias_member_table WHERE domain_id = ?1 AND kind = ?2"
    " AND member COLLATE NOCASE IN (?";

constexpr char kSelectDomains[] =
    "SELECT domain_id FROM alias_table UNION SELECT domain_id FROM alias_member_table";

constexpr int kBusyTimeout = 60000;
// Whoever asks within a batch may hold the lock of another database, for which others wait ten
// seconds: they are not to fail with us.
constexpr int kBusyTimeoutWithinBatch = 2000;

// Names in one statement, which walks through the domain's members once. SQLite may be built to
// allow no more than 999 parameters.
constexpr size_t kNamesPerStatement = 900;

const char* KindText(Alias::MemberKind kind) {
  switch (kind) {
    case Alias::MemberKind::User:
      return "user";
    case Alias::MemberKind::Group:
      return "group";
    default:
      return "address";
  }
}

bool ParseKind(const std::string& text, Alias::MemberKind& kind) {
  for (const Alias::MemberKind known :
       {Alias::MemberKind::User, Alias::MemberKind::Group, Alias::MemberKind::Address}) {
    if (text == KindText(known)) {
      kind = known;
      return true;
    }
  }
  return false;
}

bool Before(const Alias::Entry& a, const Alias::Entry& b) {
  return std::tie(a.domain_id, a.name) < std::tie(b.domain_id, b.name);
}

std::vector<Alias::Entry>::iterator Place(std::vector<Alias::Entry>& entries,
                                          const std::string& name, int domain_id) {
  return std::lower_bound(entries.begin(), entries.end(), Alias::Entry{name, domain_id, {}},
                          Before);
}

bool IsAt(const std::vector<Alias::Entry>& entries, std::vector<Alias::Entry>::const_iterator place,
          const std::string& name, int domain_id) {
  return place != entries.end() && place->domain_id == domain_id && place->name == name;
}

int Fail(const std::string& path, const char* what) {
  maillog(korvmailserver::kLogError, "alias database %s: %s", path.c_str(), what);
  return -1;
}

// Binds the values to a statement that gives no rows, and runs it.
template <typename... Values>
bool Run(Statement& statement, const Values&... values) {
  int parameter = 0;
  (statement.Bind(++parameter, values), ...);
  return statement.Run();
}

template <typename... Values>
bool Run(sqlite3* db, const char* sql, const Values&... values) {
  Statement statement(db, sql);
  return Run(statement, values...);
}

// Opens the file; from then on locks of others are waited for.
bool Connect(DBHandler& db) {
  const bool is_batch = BatchScope::IsAnyOpen();
  if (is_batch) {
    db.setBusyTimeout(kBusyTimeoutWithinBatch);
  }
  if (db.connect() != 0) {
    return false;
  }
  if (!is_batch) {
    db.setBusyTimeout(kBusyTimeout);
  }
  return true;
}

// Runs `body` in one transaction; a file that is missing is made when `create` is set, and
// otherwise there is nothing to change.
template <typename Body>
int Change(const std::string& path, bool loaded, bool create, const Body& body) {
  if (!loaded) {
    return Fail(path, "changed before it was loaded");
  }
  if (!create && !KLIBCFileExist(path.c_str())) {
    return IsDatabaseLost(path) ? -1 : 0;
  }
  DBHandler db(path, kSchema);
  db.refuseLost();
  if (!Connect(db)) {
    return -1;
  }
  Transaction transaction(db.getDB(), Transaction::Kind::kWrite);
  const bool done =
      transaction.Begun() == SQLITE_OK && body(db.getDB()) && transaction.Commit() == SQLITE_OK;
  return done ? 0 : Fail(path, sqlite3_errmsg(db.getDB()));
}

bool ReadEntries(sqlite3* db, std::vector<Alias::Entry>& entries) {
  return Statement(db, kSelectEntries).ForEachRow([&](const Statement& row) {
    entries.push_back({row.Text(0), row.Int(1), {}});
  });
}

// Both queries come in the same order, so one walk joins them.
bool ReadMembers(sqlite3* db, std::vector<Alias::Entry>& entries) {
  return Statement(db, kSelectMembers).ForEachRow([&](const Statement& row) {
    Alias::Member member = {Alias::MemberKind::User, row.Text(3)};
    const auto entry = Place(entries, row.Text(0), row.Int(1));
    if (IsAt(entries, entry, row.Text(0), row.Int(1)) && ParseKind(row.Text(2), member.kind)) {
      entry->members.push_back(member);
    }
  });
}

bool WriteEntry(sqlite3* db, const Alias::Entry& entry) {
  if (!Run(db, kInsertEntry, entry.domain_id, entry.name) ||
      !Run(db, kDeleteMembersOfEntry, entry.domain_id, entry.name)) {
    return false;
  }
  Statement insert(db, kInsertMember);
  return std::all_of(entry.members.begin(), entry.members.end(), [&](const Alias::Member& member) {
    return Run(insert, entry.domain_id, entry.name, KindText(member.kind), member.name);
  });
}

bool DeleteMembers(sqlite3* db, int domain_id, Alias::MemberKind kind,
                   const std::list<std::string>& names) {
  auto name = names.begin();
  for (size_t left = names.size(); left > 0;) {
    const size_t count = std::min(left, kNamesPerStatement);
    std::string sql = kDeleteMembers;
    for (size_t i = 1; i < count; ++i) {
      sql += ",?";
    }
    Statement remove(db, sql + ")");
    remove.Bind(1, domain_id);
    remove.Bind(2, KindText(kind));
    for (size_t i = 0; i < count; ++i, ++name) {
      remove.Bind(static_cast<int>(i) + 3, *name);
    }
    if (!remove.Run()) {
      return false;
    }
    left -= count;
  }
  return true;
}

std::vector<Alias::Member> EachOnce(const std::vector<Alias::Member>& members) {
  std::vector<Alias::Member> result;
  std::set<std::pair<Alias::MemberKind, std::string>> seen;
  for (const Alias::Member& member : members) {
    if (seen.emplace(member.kind, member.name).second) {
      result.push_back(member);
    }
  }
  return result;
}

void EraseMembers(std::vector<Alias::Entry>& entries, int domain_id, Alias::MemberKind kind,
                  const std::list<std::string>& names) {
  std::set<std::string> gone;
  for (const std::string& name : names) {
    gone.insert(ToLowerAscii(name));
  }
  for (Alias::Entry& entry : entries) {
    if (entry.domain_id != domain_id) {
      continue;
    }
    auto& members = entry.members;
    members.erase(std::remove_if(members.begin(), members.end(),
                                 [&](const Alias::Member& member) {
                                   return member.kind == kind &&
                                          gone.count(ToLowerAscii(member.name)) > 0;
                                 }),
                  members.end());
  }
}

}  // namespace

Alias::Alias(const std::string& path) : path_(path) {}

int Alias::load() {
  std::vector<Entry> entries;
  if (IsDatabaseLost(path_)) {
    return -1;
  }
  if (KLIBCFileExist(path_.c_str())) {
    DBHandler db(path_, kSchema);
    db.refuseLost();
    if (!Connect(db)) {
      return -1;
    }
    // One transaction, so that members and entries are of one moment.
    const Transaction transaction(db.getDB(), Transaction::Kind::kRead);
    if (transaction.Begun() != SQLITE_OK || !ReadEntries(db.getDB(), entries) ||
        !ReadMembers(db.getDB(), entries)) {
      return Fail(path_, sqlite3_errmsg(db.getDB()));
    }
  }
  entries_ = std::move(entries);
  loaded_ = true;
  return 0;
}

// By the kept connection where there is one.
template <typename Value, typename ReadRow>
int Alias::_Select(const char* sql, const ReadRow& read_row, std::set<Value>& values) const {
  using Values = std::set<Value>;
  const auto select = [&](Statement& statement, Values& all) {
    return statement.ForEachRow([&](const Statement& row) { all.insert(read_row(row)); });
  };
  KeptDatabase& kept = KeptDatabase::Of(path_);
  const Values* const known =
      kept.Ask<Values>(path_, sql, [&](sqlite3* db, CompiledStatements& compiled, Values& answer) {
        return select(compiled.Get(db, sql), answer);
      });
  if (known != nullptr) {
    values.insert(known->begin(), known->end());
    return 0;
  }
  if (!KLIBCFileExist(path_.c_str())) {
    return IsDatabaseLost(path_) ? -1 : 0;
  }
  DBHandler db(path_, kSchema);
  db.refuseLost();
  if (!Connect(db)) {
    return -1;
  }
  Statement statement(db.getDB(), sql);
  Values all;
  if (!select(statement, all)) {
    return Fail(path_, sqlite3_errmsg(db.getDB()));
  }
  values.merge(all);
  kept.Keep(path_);
  return 0;
}

int Alias::listDomains(std::set<int>& domain_ids) const {
  return _Select(
      kSelectDomains, [](const Statement& row) { return row.Int(0); }, domain_ids);
}

int Alias::listNames(std::set<std::pair<int, std::string>>& names) const {
  return _Select(
      kSelectEntries, [](const Statement& row) { return std::make_pair(row.Int(1), row.Text(0)); },
      names);
}

bool Alias::isAlias(const std::string& name, int domain_id) const {
  const auto place =
      std::lower_bound(entries_.begin(), entries_.end(), Entry{name, domain_id, {}}, Before);
  return IsAt(entries_, place, name, domain_id);
}

int Alias::set(const Entry& entry) {
  if (Change(path_, loaded_, true, [&](sqlite3* db) { return WriteEntry(db, entry); }) != 0) {
    return -1;
  }
  auto place = Place(entries_, entry.name, entry.domain_id);
  if (!IsAt(entries_, place, entry.name, entry.domain_id)) {
    place = entries_.insert(place, {entry.name, entry.domain_id, {}});
  }
  place->members = EachOnce(entry.members);
  return 0;
}

int Alias::del(const std::string& name, int domain_id) {
  if (Change(path_, loaded_, false, [&](sqlite3* db) {
        return Run(db, kDeleteEntry, domain_id, name) &&
               Run(db, kDeleteMembersOfEntry, domain_id, name);
      }) != 0) {
    return -1;
  }
  const auto place = Place(entries_, name, domain_id);
  if (IsAt(entries_, place, name, domain_id)) {
    entries_.erase(place);
  }
  return 0;
}

int Alias::delDomainAlias(int domain_id) {
  if (Change(path_, loaded_, false, [&](sqlite3* db) {
        return Run(db, kDeleteDomain, domain_id) && Run(db, kDeleteMembersOfDomain, domain_id);
      }) != 0) {
    return -1;
  }
  entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                [&](const Entry& entry) { return entry.domain_id == domain_id; }),
                 entries_.end());
  return 0;
}

int Alias::delDomainUserMember(int domain_id, const std::list<std::string>& names) {
  return _DeleteDomainMembers(domain_id, MemberKind::User, names);
}

int Alias::delDomainGroupMember(int domain_id, const std::list<std::string>& names) {
  return _DeleteDomainMembers(domain_id, MemberKind::Group, names);
}

int Alias::_DeleteDomainMembers(int domain_id, MemberKind kind,
                                const std::list<std::string>& names) {
  if (names.empty()) {
    return 0;  // without the lock
  }
  if (Change(path_, loaded_, false,
             [&](sqlite3* db) { return DeleteMembers(db, domain_id, kind, names); }) != 0) {
    return -1;
  }
  EraseMembers(entries_, domain_id, kind, names);
  return 0;
}
