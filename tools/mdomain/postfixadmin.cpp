// PostfixAdmin's tables: domain, alias_domain, mailbox and alias make the site. Of domain_admins,
// vacation and fetchmail everything that is in force is told. An alias of every mailbox, to itself,
// is one of its habits; "ALL" is no domain but the place of its administrators.
#include <algorithm>

#include "platform/include/sqlite.h"
#include "platform/include/text.h"
#include "tools/mdomain/foreign_sources.h"
#include "tools/mdomain/sql_dump.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::Connection;
using korvmailserver::Statement;
using Tables = std::map<std::string, SqlTable>;

constexpr const char* kNeeded[] = {"domain", "mailbox", "alias"};
constexpr const char* kTables[] = {"domain",        "mailbox",  "alias",    "alias_domain",
                                   "domain_admins", "vacation", "fetchmail"};
constexpr const char* kAll = "ALL";
constexpr int kBusyMilliseconds = 5000;
constexpr std::string_view kSqliteHeader{"SQLite format 3\0", 16};

// The values of a row by the names of their columns.
class Record {
 public:
  Record(const SqlTable& table, const SqlRow& row) : table_(table), row_(row) {}

  // Empty for NULL and for a column that this version has not.
  std::string Text(const std::string& column) const {
    const auto found = std::find(table_.columns.begin(), table_.columns.end(), column);
    const auto number = static_cast<size_t>(found - table_.columns.begin());
    return found == table_.columns.end() ? "" : row_.values[number].value_or("");
  }
  bool IsSet(const std::string& column, bool fallback) const {
    const std::string text = Text(column);
    return text.empty() ? fallback : text != "0" && text != "f" && text != "false";
  }
  // A number other than 0.
  bool HasNumber(const std::string& column) const {
    return Text(column).find_first_of("123456789") != std::string::npos;
  }
  bool IsActive() const { return IsSet("active", true); }

 private:
  const SqlTable& table_;
  const SqlRow& row_;
};

[[noreturn]] void CannotRead(const std::string& table, const Statement& statement) {
  throw Failure(kRefused, "table " + table + ": " + statement.Error());
}

void ReadTable(Connection& database, const std::string& stored, SqlTable& table) {
  Statement columns(database.Get(), "SELECT name FROM pragma_table_info(?)");
  columns.Bind(1, stored);
  if (!columns.ForEachRow([&](const Statement& row) {
        table.columns.push_back(korvmailserver::ToLowerAscii(row.Text(0)));
      })) {
    CannotRead(stored, columns);
  }
  Statement rows(database.Get(), korvmailserver::FormatSql("SELECT * FROM \"%w\"", stored.c_str()));
  size_t number = 0;
  if (!rows.ForEachRow([&](const Statement& row) {
        SqlRow read{++number, {}};
        for (int i = 0; i < row.Columns(); ++i) {
          read.values.emplace_back(row.IsNull(i) ? std::nullopt : std::optional(row.Text(i)));
        }
        table.rows.push_back(std::move(read));
      })) {
    CannotRead(stored, rows);
  }
}

Tables ReadSqlite(const std::string& file, const std::set<std::string>& wanted) {
  Connection database;
  if (database.Open(file, Connection::Mode::kRead, kBusyMilliseconds) != SQLITE_OK) {
    throw Failure(kFailed, file + ": " + database.Error());
  }
  const korvmailserver::Transaction one_moment(database.Get(),
                                               korvmailserver::Transaction::Kind::kRead);
  std::vector<std::string> stored;
  Statement names(database.Get(), "SELECT name FROM sqlite_master WHERE type = 'table'");
  if (!names.ForEachRow([&](const Statement& row) { stored.push_back(row.Text(0)); })) {
    throw Failure(kRefused, file + ": " + names.Error());
  }
  Tables tables;
  for (const std::string& name : stored) {
    const std::string lower = korvmailserver::ToLowerAscii(name);
    if (wanted.count(lower) != 0) {
      ReadTable(database, name, tables[lower]);
    }
  }
  return tables;
}

// By their names without the prefix.
Tables ReadTables(const std::string& file, const std::string& prefix) {
  const std::string lower_prefix = korvmailserver::ToLowerAscii(prefix);
  std::set<std::string> wanted;
  for (const char* table : kTables) {
    wanted.insert(lower_prefix + table);
  }
  const std::string text = ReadForeignFile(file);
  Tables prefixed;
  if (std::string_view(text).substr(0, kSqliteHeader.size()) == kSqliteHeader) {
    prefixed = ReadSqlite(file, wanted);
  } else {
    try {
      prefixed = ReadSqlDump(text, wanted);
    } catch (const BadSqlDump& bad) {
      throw Failure(kRefused, file + ": " + bad.what());
    }
  }
  Tables tables;
  for (auto& table : prefixed) {
    tables[table.first.substr(prefix.size())] = std::move(table.second);
  }
  for (const char* needed : kNeeded) {
    if (tables.count(needed) == 0) {
      std::string what = ": there is no table \"";
      what.append(prefix).append(needed).append("\"");
      throw Failure(kRefused, file + what);
    }
  }
  return tables;
}

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  return begin == std::string::npos
             ? ""
             : text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::vector<std::string> SplitTargets(const std::string& text) {
  std::vector<std::string> targets;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t end = std::min(text.find(',', begin), text.size());
    std::string target = Trimmed(text.substr(begin, end - begin));
    if (!target.empty()) {
      targets.push_back(std::move(target));
    }
    begin = end + 1;
  }
  return targets;
}

class Tellers {
 public:
  Tellers(const Tables& tables, const AccountOfMailbox& accounts)
      : tables_(tables), accounts_(accounts) {}

  ForeignMail Tell() {
    ForEach("alias_domain", [this](const Record& row) { AddName(row); });
    ForEach("domain", [this](const Record& row) { AddDomain(row); });
    ForEach("mailbox", [this](const Record& row) { AddMailbox(row); });
    ForEach("alias", [this](const Record& row) { AddAlias(row); });
    ForEach("domain_admins", [this](const Record& row) { AddAdmin(row); });
    ForEach("vacation", [this](const Record& row) {
      LeaveOutActive("vacation answer of " + row.Text("email"), row);
    });
    ForEach("fetchmail", [this](const Record& row) {
      LeaveOutActive("fetching of mail for " + row.Text("mailbox"), row);
    });
    return std::move(mail_);
  }

 private:
  template <typename Use>
  void ForEach(const char* name, const Use& use) {
    const auto table = tables_.find(name);
    if (table != tables_.end()) {
      for (const SqlRow& row : table->second.rows) {
        use(Record(table->second, row));
      }
    }
  }

  void LeaveOut(const std::string& what, const std::string& why) {
    mail_.left_out.push_back(what + ": " + why);
  }

  void LeaveOutActive(const std::string& what, const Record& row) {
    if (row.IsActive()) {
      LeaveOut(what, "this is not kept here");
    }
  }

  // False, and said, where it is switched off.
  bool IsActive(const std::string& what, const Record& row) {
    if (!row.IsActive()) {
      LeaveOut(what, "it is not active");
    }
    return row.IsActive();
  }

  void AddName(const Record& row) {
    const std::string name = row.Text("alias_domain");
    is_alias_domain_.insert(korvmailserver::ToLowerAscii(name));
    if (IsActive("name " + name, row)) {
      mail_.names.emplace_back(name, row.Text("target_domain"));
    }
  }

  void AddDomain(const Record& row) {
    const std::string name = row.Text("domain");
    const std::string what = "domain " + name;
    if (name == kAll || is_alias_domain_.count(korvmailserver::ToLowerAscii(name)) != 0 ||
        !IsActive(what, row)) {
      return;
    }
    if (row.IsSet("backupmx", false)) {
      LeaveOut(what, "its mail is only passed on (backup MX)");
      return;
    }
    const std::string transport = row.Text("transport");
    if (!transport.empty() && transport != "virtual") {
      LeaveOut("transport of " + name, "\"" + transport + "\" is a matter of Postfix");
    }
    mail_.domains[name] = row.Text("description");
  }

  void AddMailbox(const Record& row) {
    const std::string address = row.Text("username");
    if (!IsActive("mailbox " + address, row)) {
      is_inactive_.insert(address);
      return;
    }
    if (row.HasNumber("quota")) {
      LeaveOut("quota of " + address, "this is not kept here");
    }
    mail_.mailboxes.push_back({address, accounts_.Of(address)});
    is_mailbox_.insert(address);
  }

  // A vacation answer is a target of its own: user#domain@autoreply.example.
  static bool IsVacation(const std::string& target, const std::string& address) {
    std::string begin = address + "@";
    std::replace(begin.begin(), begin.end() - 1, '@', '#');
    return target.rfind(begin, 0) == 0;
  }

  void AddAlias(const Record& row) {
    const std::string address = row.Text("address");
    if (!IsActive("alias " + address, row)) {
      return;
    }
    ForeignAlias alias{address, {}};
    for (const std::string& target : SplitTargets(row.Text("goto"))) {
      if (IsVacation(target, address)) {
        LeaveOut("vacation answer of " + address, "\"" + target + "\" sends it, not a mailbox");
      } else {
        alias.targets.push_back(target);
      }
    }
    const bool is_habit = alias.targets == std::vector<std::string>{address};
    if (!is_habit || is_inactive_.count(address) == 0) {
      mail_.aliases.push_back(std::move(alias));
    }
  }

  void AddAdmin(const Record& row) {
    const std::string who = row.Text("username");
    const std::string domain = row.Text("domain");
    if (!row.IsActive()) {
      return;
    }
    if (domain == kAll || is_mailbox_.count(who) == 0) {
      LeaveOut("administrator " + who + " of " + domain, "no mailbox is theirs");
    } else {
      mail_.admins.emplace(domain, who);
    }
  }

  const Tables& tables_;
  const AccountOfMailbox& accounts_;
  ForeignMail mail_;
  std::set<std::string> is_alias_domain_;  // in lower case
  std::set<std::string> is_mailbox_;       // addresses
  std::set<std::string> is_inactive_;
};

}  // namespace

ForeignMail ReadPostfixAdmin(const std::string& file, const std::string& table_prefix,
                             const AccountOfMailbox& accounts) {
  return Tellers(ReadTables(file, table_prefix), accounts).Tell();
}

}  // namespace mdomain
