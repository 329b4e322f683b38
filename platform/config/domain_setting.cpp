// Default rows per domain in the settings database, which the mail server's other settings share.
#include "platform/include/domain_setting.h"

#include <algorithm>
#include <array>

#include "platform/include/db_handler.h"
#include "platform/include/files.h"
#include "platform/include/kept_database.h"
#include "platform/include/lost_database.h"
#include "platform/include/maillog.h"
#include "platform/include/sqlite.h"

namespace MultipleDomain {

using korvmailserver::CompiledStatements;
using korvmailserver::KeptDatabase;
using korvmailserver::Statement;

namespace {

using SharedDomains = std::shared_ptr<const DomainsWithSettings>;

constexpr char kServerTables[] =
    "create table bcc_table(name TEXT, type INTEGER, bcc_to TEXT, domain_id INTEGER NOT NULL "
    "DEFAULT 1);"
    "create unique index bcc_name_index on bcc_table(name, type, domain_id);"
    "create table access_table(name_type INTEGER, name TEXT, type INTEGER, access INTEGER);"
    "create unique index access_name_index on access_table(name_type, name, type);"
    "create table blackwhite_table(name_type INTEGER, name TEXT, type INTEGER, blackwhite "
    "INTEGER);"
    "create unique index blackwhite_name_index on blackwhite_table(name_type, name, type);"
    "create table sender_quota_table(sender TEXT, quota INTEGER);"
    "create unique index sender_quota_index on sender_quota_table(sender);";

// Also run on a database that was made before there were several domains.
constexpr char kDomainTables[] =
    "create table if not exists multi_domain_enable_table(domain_id INTEGER, en_attach INTEGER "
    "DEFAULT 0, en_quota INTEGER DEFAULT 0, en_flow INTEGER DEFAULT 0, en_forward INTEGER DEFAULT "
    "1, en_catch_all INTEGER DEFAULT 0);"
    "create unique index if not exists multi_domain_enable_index on "
    "multi_domain_enable_table(domain_id);"
    "create table if not exists multi_domain_rate_table(domain_id INTEGER, rt_attach INTEGER "
    "DEFAULT 10, rt_quota INTEGER DEFAULT 500, rt_flow INTEGER DEFAULT 2000, rt_mail_size INTEGER "
    "DEFAULT 10, catch_all INTEGER DEFAULT -1);"
    "create unique index if not exists multi_domain_value_index on "
    "multi_domain_rate_table(domain_id);";

constexpr std::array<const char*, 2> kInsertRows = {
    "INSERT OR IGNORE INTO multi_domain_enable_table(domain_id) VALUES(?1)",
    "INSERT OR IGNORE INTO multi_domain_rate_table(domain_id) VALUES(?1)"};
constexpr std::array<const char*, 2> kDeleteRows = {
    "DELETE FROM multi_domain_enable_table WHERE domain_id = ?1",
    "DELETE FROM multi_domain_rate_table WHERE domain_id = ?1"};

constexpr char kHasTables[] = "SELECT 1 FROM sqlite_master WHERE name = 'multi_domain_rate_table'";
// An id comes once from each table that has it: no index of theirs has two.
constexpr char kSelectDomains[] =
    "SELECT domain_id FROM multi_domain_enable_table UNION ALL SELECT domain_id FROM "
    "multi_domain_rate_table";

// The mail server adds tables of its own, and older ones lack some of these.
constexpr char kCountTables[] =
    "SELECT count(*), total(name IN ('bcc_table', 'access_table', 'blackwhite_table', "
    "'sender_quota_table', 'multi_domain_enable_table', 'multi_domain_rate_table')) FROM "
    "sqlite_master WHERE type = 'table'";

// The two tables with the indexes that keep their rows apart.
constexpr char kCountOfDomainTables[] =
    "SELECT count(*) FROM sqlite_master WHERE name IN ('multi_domain_enable_table', "
    "'multi_domain_enable_index', 'multi_domain_rate_table', 'multi_domain_value_index')";
constexpr int kDomainTablesAndIndexes = 4;

constexpr int kBusyTimeout = 60000;

// A database of another program is left alone. False with a log line.
bool IsOurs(const std::string& path, sqlite3* db) {
  Statement tables(db, kCountTables);
  if (tables.Step() == SQLITE_ROW && tables.Int(0) > 0 && tables.Int(1) == 0) {
    maillog(korvmailserver::kLogError,
            "settings database %s: it belongs to another program, none of its tables is known",
            path.c_str());
    return false;
  }
  return true;
}

bool Run(Statement& statement, int domain_id) {
  statement.Bind(1, domain_id);
  return statement.Run();
}

bool Run(sqlite3* db, const char* sql, int domain_id) {
  Statement statement(db, sql);
  return Run(statement, domain_id);
}

bool RunOnKept(const std::string& path, const std::array<const char*, 2>& statements,
               int domain_id) {
  return KeptDatabase::Of(path).Run(path, [&](sqlite3* db, CompiledStatements& compiled) {
    korvmailserver::Transaction transaction(db, korvmailserver::Transaction::Kind::kWrite);
    Statement& tables = compiled.Get(db, kCountOfDomainTables);
    const bool are_there = transaction.Begun() == SQLITE_OK && tables.Step() == SQLITE_ROW &&
                           tables.Int(0) == kDomainTablesAndIndexes;
    tables.Reset();
    return are_there && Run(compiled.Get(db, statements[0]), domain_id) &&
           Run(compiled.Get(db, statements[1]), domain_id) && transaction.Commit() == SQLITE_OK;
  });
}

// One statement for each of the two tables, in one transaction.
int RunOnBothTables(const std::string& path, const std::array<const char*, 2>& statements,
                    int domain_id) {
  if (RunOnKept(path, statements, domain_id)) {
    return 0;
  }
  DBHandler db(path, SettingsSchema());
  db.refuseLost();
  if (db.connect() != 0 || !IsOurs(path, db.getDB())) {
    return -1;
  }
  db.setBusyTimeout(kBusyTimeout);
  korvmailserver::Transaction transaction(db.getDB(), korvmailserver::Transaction::Kind::kWrite);
  if (transaction.Begun() == SQLITE_OK && db.exeCmds({kDomainTables}, false) == 0 &&
      Run(db.getDB(), statements[0], domain_id) && Run(db.getDB(), statements[1], domain_id) &&
      transaction.Commit() == SQLITE_OK) {
    return 0;
  }
  maillog(korvmailserver::kLogError, "settings database %s: %s", path.c_str(),
          sqlite3_errmsg(db.getDB()));
  return -1;
}

bool SelectDomains(Statement& statement, SharedDomains& domains) {
  const auto found = std::make_shared<DomainsWithSettings>();
  std::vector<int>& all = found->all;
  if (!statement.ForEachRow([&all](const Statement& row) { all.push_back(row.Int(0)); })) {
    return false;
  }
  std::stable_sort(all.begin(), all.end());  // quick for two tables, each in order
  for (size_t i = 1; i < all.size(); ++i) {
    if (all[i] == all[i - 1]) {
      found->whole.push_back(all[i]);
    }
  }
  all.erase(std::unique(all.begin(), all.end()), all.end());
  domains = found;
  return true;
}

}  // namespace

const std::string& SettingsSchema() {
  static const auto& schema = *new std::string(std::string(kServerTables) + kDomainTables);
  return schema;
}

DomainSetting::DomainSetting(const std::string& path) : path_(path) {}

int DomainSetting::CreateSettings(int domain_id) {
  return RunOnBothTables(path_, kInsertRows, domain_id);
}

int DomainSetting::DelSettings(int domain_id) {
  if (!KLIBCFileExist(path_.c_str())) {
    return korvmailserver::IsDatabaseLost(path_) ? -1 : 0;
  }
  return RunOnBothTables(path_, kDeleteRows, domain_id);
}

int DomainSetting::ListDomains(SharedDomains& domains) {
  KeptDatabase& kept = KeptDatabase::Of(path_);
  const auto* const known = kept.Ask<SharedDomains>(
      path_, kSelectDomains, [](sqlite3* db, CompiledStatements& compiled, SharedDomains& answer) {
        return SelectDomains(compiled.Get(db, kSelectDomains), answer);
      });
  if (known != nullptr) {
    domains = *known;
    return 0;
  }
  const auto none = std::make_shared<DomainsWithSettings>();
  if (!KLIBCFileExist(path_.c_str())) {
    if (korvmailserver::IsDatabaseLost(path_)) {
      return -1;
    }
    domains = none;
    return 0;
  }
  DBHandler db(path_, SettingsSchema());
  db.refuseLost();
  if (db.connect() != 0) {
    return -1;
  }
  db.setBusyTimeout(kBusyTimeout);
  const int found = Statement(db.getDB(), kHasTables).Step();
  if (found == SQLITE_DONE) {
    domains = none;
    return 0;
  }
  Statement statement(db.getDB(), kSelectDomains);
  if (found == SQLITE_ROW && SelectDomains(statement, domains)) {
    kept.Keep(path_);
    return 0;
  }
  maillog(korvmailserver::kLogError, "settings database %s: %s", path_.c_str(), statement.Error());
  return -1;
}

}  // namespace MultipleDomain
