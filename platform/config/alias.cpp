// The alias table's SQLite store. Each change is one transaction on a connection of its own; the
// loaded entries follow it, so a caller sees its own changes without loading again.
#include "platform/include/alias.h"

#include <strings.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "platform/include/db_handler.h"
#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/keystore/statement.h"

namespace {

const char kSchema[] =
    "create table alias_table(name TEXT NOT NULL, domain_id INTEGER NOT NULL,"
    " PRIMARY KEY(domain_id, name));"
    "create table alias_member_table(alias TEXT NOT NULL, domain_id INTEGER NOT NULL,"
    " kind TEXT NOT NULL, member TEXT NOT NULL, PRIMARY KEY(domain_id, alias, kind, member));";
const char kSelectEntries[] = "SELECT name, domain_id FROM alias_table ORDER BY domain_id, name";
const char kSelectMembers[] =
    "SELECT alias, domain_id, kind, member FROM alias_member_table"
    " ORDER BY domain_id, alias, rowid";

constexpr int kBusyTimeout = 60000;

// Names in one statement; keeps it far below SQLite's length limit.
constexpr size_t kNamesPerStatement = 1000;

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

// `text` as an SQL literal.
std::string Quote(const std::string& text) {
  char* quoted = sqlite3_mprintf("%Q", text.c_str());
  std::string result = quoted;
  sqlite3_free(quoted);
  return result;
}

std::string Where(const char* name_column, const std::string& name, int domain_id) {
  return " WHERE domain_id = " + std::to_string(domain_id) + " AND " + name_column + " = " +
         Quote(name);
}

int Fail(const std::string& path, const char* what) {
  maillog(3, "alias database %s: %s", path.c_str(), what);
  return -1;
}

// Runs the statements in one transaction; a file that is missing is made when `create` is set, and
// otherwise there is nothing to change.
int Change(const std::string& path, bool loaded, bool create, const SQLCmd& statements) {
  if (!loaded) {
    return Fail(path, "changed before it was loaded");
  }
  if (!create && !KLIBCFileExist(path.c_str())) {
    return 0;
  }
  DBHandler db(path, kSchema);
  if (db.connect() != 0) {
    return -1;
  }
  db.setBusyTimeout(kBusyTimeout);
  return db.exeCmds(statements, true) == 0 ? 0 : Fail(path, db.GetErrText().c_str());
}

bool ReadEntries(sqlite3* db, std::vector<Alias::Entry>& entries) {
  korvmailserver::Statement select(db, kSelectEntries);
  int result = SQLITE_ROW;
  while ((result = select.Step()) == SQLITE_ROW) {
    entries.push_back({select.Text(0), select.Int(1), {}});
  }
  return result == SQLITE_DONE;
}

// Both queries come in the same order, so one walk joins them.
bool ReadMembers(sqlite3* db, std::vector<Alias::Entry>& entries) {
  korvmailserver::Statement select(db, kSelectMembers);
  int result = SQLITE_ROW;
  while ((result = select.Step()) == SQLITE_ROW) {
    Alias::Member member = {Alias::MemberKind::User, select.Text(3)};
    const auto entry = Place(entries, select.Text(0), select.Int(1));
    if (IsAt(entries, entry, select.Text(0), select.Int(1)) &&
        ParseKind(select.Text(2), member.kind)) {
      entry->members.push_back(member);
    }
  }
  return result == SQLITE_DONE;
}

SQLCmd DeleteMembers(int domain_id, Alias::MemberKind kind, const std::list<std::string>& names) {
  SQLCmd statements;
  std::string list;
  size_t count = 0;
  for (const std::string& name : names) {
    list += (list.empty() ? "" : ",") + Quote(name);
    if (++count % kNamesPerStatement == 0 || count == names.size()) {
      statements.push_back(
          "DELETE FROM alias_member_table WHERE domain_id = " + std::to_string(domain_id) +
          " AND kind = '" + KindText(kind) + "' AND member COLLATE NOCASE IN (" + list + ")");
      list.clear();
    }
  }
  return statements;
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

struct IgnoreCase {
  bool operator()(const std::string& a, const std::string& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
  }
};

void EraseMembers(std::vector<Alias::Entry>& entries, int domain_id, Alias::MemberKind kind,
                  const std::list<std::string>& names) {
  const std::set<std::string, IgnoreCase> gone(names.begin(), names.end());
  for (Alias::Entry& entry : entries) {
    if (entry.domain_id != domain_id) {
      continue;
    }
    auto& members = entry.members;
    members.erase(std::remove_if(members.begin(), members.end(),
                                 [&](const Alias::Member& member) {
                                   return member.kind == kind && gone.count(member.name) > 0;
                                 }),
                  members.end());
  }
}

}  // namespace

Alias::Alias(const std::string& path) : path_(path) {}

int Alias::load() {
  std::vector<Entry> entries;
  if (KLIBCFileExist(path_.c_str())) {
    DBHandler db(path_, kSchema);
    if (db.connect() != 0) {
      return -1;
    }
    db.setBusyTimeout(kBusyTimeout);
    // One transaction, so that members and entries are of one moment.
    if (db.exeCmds({"BEGIN"}, false) != 0 || !ReadEntries(db.getDB(), entries) ||
        !ReadMembers(db.getDB(), entries)) {
      return Fail(path_, sqlite3_errmsg(db.getDB()));
    }
  }
  entries_ = std::move(entries);
  loaded_ = true;
  return 0;
}

bool Alias::isAlias(const std::string& name, int domain_id) const {
  const auto place =
      std::lower_bound(entries_.begin(), entries_.end(), Entry{name, domain_id, {}}, Before);
  return IsAt(entries_, place, name, domain_id);
}

int Alias::set(const Entry& entry) {
  SQLCmd statements = {
      "INSERT OR IGNORE INTO alias_table(name, domain_id) VALUES(" + Quote(entry.name) + "," +
          std::to_string(entry.domain_id) + ")",
      "DELETE FROM alias_member_table" + Where("alias", entry.name, entry.domain_id)};
  for (const Member& member : entry.members) {
    statements.push_back("INSERT OR IGNORE INTO alias_member_table VALUES(" + Quote(entry.name) +
                         "," + std::to_string(entry.domain_id) + ",'" + KindText(member.kind) +
                         "'," + Quote(member.name) + ")");
  }
  if (Change(path_, loaded_, true, statements) != 0) {
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
  if (Change(path_, loaded_, false,
             {"DELETE FROM alias_table" + Where("name", name, domain_id),
              "DELETE FROM alias_member_table" + Where("alias", name, domain_id)}) != 0) {
    return -1;
  }
  const auto place = Place(entries_, name, domain_id);
  if (IsAt(entries_, place, name, domain_id)) {
    entries_.erase(place);
  }
  return 0;
}

int Alias::delDomainAlias(int domain_id) {
  const std::string where = " WHERE domain_id = " + std::to_string(domain_id);
  if (Change(path_, loaded_, false,
             {"DELETE FROM alias_table" + where, "DELETE FROM alias_member_table" + where}) != 0) {
    return -1;
  }
  entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                [&](const Entry& entry) { return entry.domain_id == domain_id; }),
                 entries_.end());
  return 0;
}

int Alias::delDomainUserMember(int domain_id, const std::list<std::string>& names) {
  if (Change(path_, loaded_, false, DeleteMembers(domain_id, MemberKind::User, names)) != 0) {
    return -1;
  }
  EraseMembers(entries_, domain_id, MemberKind::User, names);
  return 0;
}

int Alias::delDomainGroupMember(int domain_id, const std::list<std::string>& names) {
  if (Change(path_, loaded_, false, DeleteMembers(domain_id, MemberKind::Group, names)) != 0) {
    return -1;
  }
  EraseMembers(entries_, domain_id, MemberKind::Group, names);
  return 0;
}
