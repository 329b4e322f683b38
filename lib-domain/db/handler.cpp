// Opening, upgrading and querying the domain database.
//
// SQLite's own file locking is all that stands between processes; nothing here is thread-safe.
#include "lib-domain/db/handler.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

#include "lib-domain/base/account_settings.h"
#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/db/handler_state.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/schema.h"
#include "platform/include/batch_scope.h"
#include "platform/include/files.h"
#include "platform/include/lost_database.h"
#include "platform/include/nodes.h"
#include "platform/include/scope_guard.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB {

namespace {

constexpr int kOpenBusyMilliseconds = 60000;
constexpr int kSelectBusyMilliseconds = 10000;
constexpr int kIndexBusyMilliseconds = 1000;  // whoever writes now makes them, or the next
constexpr char kCountTables[] =
    "SELECT count(*), total(name = 'domain_table') FROM sqlite_master WHERE type = 'table'";
constexpr char kCountDomains[] =
    "SELECT EXISTS (SELECT 1 FROM domain_table), application_id FROM pragma_application_id";

[[noreturn]] void ThrowSelectError(const std::string& what, sqlite3* db, const std::string& sql,
                                   int line) {
  throw korvmailserver::LogException(korvmailserver::ERR_SELECT_QUERY,
                                     what + ": " + sqlite3_errmsg(db) + ", cmd: " + sql,
                                     BASE::kLogError, BASE::SourcePath(__FILE__), line);
}

enum class Standing { kMissing, kEmpty, kFilled };

Standing StandingOf(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) {
    return errno == ENOENT ? Standing::kMissing : Standing::kFilled;
  }
  return info.st_size == 0 ? Standing::kEmpty : Standing::kFilled;
}

// A model that lost its file looks like a new host, and no command after the first would say so.
void ReportLostModel(const std::string& path, Standing before) {
  INTERNAL::PublishedModel published;
  if (!INTERNAL::ReadPublishedModel(published) || !published.has_domains ||
      published.file != INTERNAL::ModelFileName(path)) {
    return;
  }
  if (before == Standing::kFilled) {
    LOG_WARNING("Domain db [%s] has no domain, although domains of it are published", path.c_str());
    return;
  }
  LOG_WARNING("Domain db [%s] is %s, although its domains are published: it starts anew",
              path.c_str(), before == Standing::kMissing ? "missing" : "empty");
}

// Without the scripts no version is known.
int CurrentVersion() {
  std::vector<std::string> scripts;
  return UTILS::DomainUtilGetSqliteCmds(scripts) ? static_cast<int>(scripts.size()) : -1;
}

// A pulled file that was written to would no longer be what is published, and be pulled again.
// Where the role of this machine cannot be told: `otherwise`.
bool IsPulled(bool otherwise) {
  korvmailserver::NodeStanding standing;
  return korvmailserver::ReadNodeStanding(standing)
             ? standing.role == korvmailserver::NodeRole::kMember
             : otherwise;
}

// SQLite tells of each row that the connection writes, cascades included.
void CountNameChanges(void* state, int /*operation*/, const char* /*database*/, const char* table,
                      sqlite3_int64 /*rowid*/) {
  for (const char* names :
       {"domain_table", "primary_domain_table", "domain_to_additional_domain_table"}) {
    if (std::strcmp(table, names) == 0) {
      ++static_cast<INTERNAL::HandlerState*>(state)->name_changes;
    }
  }
}

using AllStates = std::map<const DomainDBHandler*, std::unique_ptr<INTERNAL::HandlerState>>;
AllStates& States() {
  static auto& states = *new AllStates();
  return states;
}

}  // namespace

DomainDBHandler* DomainDBHandler::_singleDomainDBHandler = nullptr;

DomainDBHandler* DomainDBHandler::GetDomainDBHandler() {
  if (_singleDomainDBHandler != nullptr) {
    return _singleDomainDBHandler->FollowFile() ? _singleDomainDBHandler : nullptr;
  }
  std::string path;
  if (!UTILS::GetUserGroupDomainConfigPath(path)) {
    LOG_ERROR("GetUserGroupDomainConfigPath fail");
    return nullptr;
  }
  if (!BASE::IsAccountSourceInForce("")) {
    return nullptr;
  }
  const Standing before = StandingOf(path);
  _singleDomainDBHandler = new DomainDBHandler(path);
  _singleDomainDBHandler->readMissingAsNew();
  _singleDomainDBHandler->refuseLost();
  if (_singleDomainDBHandler->ConnectAndUpgrade() != 0) {
    LOG_ERROR("Domain db error");
    CloseDomainDBHandler();
    return nullptr;
  }
  _singleDomainDBHandler->setBusyTimeout(kOpenBusyMilliseconds);
  if (_singleDomainDBHandler->_LacksDomains()) {
    ReportLostModel(path, before);
  }
  return _singleDomainDBHandler;
}

void DomainDBHandler::CloseDomainDBHandler() {
  if (_singleDomainDBHandler != nullptr) {
    korvmailserver::ForgetDatabase(_singleDomainDBHandler->path_);
  }
  delete _singleDomainDBHandler;
  _singleDomainDBHandler = nullptr;
}

DomainDBHandler::DomainDBHandler(const std::string& path) : DBHandler(path, "") {
  err_ = -1;
  States()[this] = std::make_unique<INTERNAL::HandlerState>();
  beforeClosing([this] {
    _State().kept->Clear();
    _State().memory = {};
    sqlite3_update_hook(db_, nullptr, nullptr);
  });
}

DomainDBHandler::~DomainDBHandler() {
  disconnect();
  States().erase(this);
}

INTERNAL::HandlerState& DomainDBHandler::_State() const {
  return *States().at(this);
}

bool DomainDBHandler::HasOwnViews() {
  return FollowFile() && _State().has_own_views;
}

bool DomainDBHandler::FollowFile() {
  if (_State().is_pinned || BatchScope::IsAnyOpen()) {
    return db_ != nullptr;
  }
  if (db_ != nullptr && lookAtFile() == FileNow::kSame) {
    return true;
  }
  disconnect();
  if (ConnectAndUpgrade() != 0) {
    LOG_ERROR("Domain db error");
    disconnect();
  }
  return db_ != nullptr;
}

bool DomainDBHandler::IsOfSourceInForce() const {
  return this != _singleDomainDBHandler || BASE::IsAccountSourceInForce(path_);
}

int DomainDBHandler::ConnectAndUpgrade() {
  const int connected = connect();
  if (connected != 0) {
    LOG_ERROR("Cannot connect domain db");
    err_ = connected;
    return err_;
  }
  if (_InitPragma() != 0) {
    LOG_ERROR("Cannot init pragma");
    return err_;
  }
  const int version = _GetNowVersion();
  if (version == -1) {
    LOG_ERROR("Cannot get domain db version");
    err_ = -1;
    return err_;
  }
  if (_IsOfAnother()) {
    LOG_ERROR("Domain db [%s] belongs to another program: it has tables, but no domain_table",
              path_.c_str());
    err_ = SQLITE_NOTADB;
    return err_;
  }
  if (version > 0 && version < CurrentVersion() && IsPulled(false)) {
    LOG_NOTICE("Domain db [%s] is of version %d until the machine that manages it is upgraded",
               path_.c_str(), version);
  } else if (_UpgradeDB(version) != 0) {
    LOG_ERROR("Cannot upgrade domain db version: %i", version);
    return err_;
  }
  forbidWritesInMemory();
  sqlite3_update_hook(db_, &CountNameChanges, &_State());
  _PrepareFastRoads();
  return 0;
}

// In a file of another version the views' names may mean something else.
void DomainDBHandler::_PrepareFastRoads() {
  _State().has_own_views = false;
  if (_GetNowVersion() != CurrentVersion()) {
    return;
  }
  if (!INTERNAL::HasOwnIndexes(db_) && sqlite3_db_readonly(db_, "main") == 0 && !IsPulled(true)) {
    sqlite3_busy_timeout(db_, kIndexBusyMilliseconds);
    exeCmds(INTERNAL::OwnIndexStatements(), true);
    sqlite3_busy_timeout(db_, kOpenBusyMilliseconds);
  }
  if (INTERNAL::HasOwnIndexes(db_)) {
    _State().has_own_views = INTERNAL::DefineOwnViews(db_);
  }
  err_ = SQLITE_OK;
}

int DomainDBHandler::createDB() {
  disconnect();
  err_ = sqlite3_open(path_.c_str(), &db_);
  if (err_ != 0) {
    LOG_ERROR("Open database fail. dbpath = [%s]", path_.c_str());
    return err_;
  }
  korvmailserver::MakeWatchable(db_);
  // Without its owner the mail server could not write the file: it stays empty, and the next
  // process that may set the owner makes the tables.
  if (mailFileOwnerModeSet(path_.c_str(), "Postara-Server", 0644) >= 0 && _UpgradeDB(0) != 0) {
    LOG_ERROR("Cannot upgrade version: 0");
  }
  return err_;
}

std::vector<std::vector<std::string>> DomainDBHandler::ExecSelectCmd(const std::string& sql) {
  std::vector<std::vector<std::string>> rows;
  ForEachRow(sql, [&rows](const korvmailserver::Statement& row) {
    rows.push_back(row.Texts());
    return true;
  });
  return rows;
}

void DomainDBHandler::ForEachRow(
    const std::string& sql, const std::function<bool(const korvmailserver::Statement& row)>& use) {
  ForEachRow(INTERNAL::Sql(sql), use);
}

void DomainDBHandler::ForEachRow(
    const INTERNAL::Sql& sql,
    const std::function<bool(const korvmailserver::Statement& row)>& use) {
  if (sql.IsKept()) {
    _RunKept(sql, use, OnFailure::kThrow);
    return;
  }
  korvmailserver::Statement statement(db_, sql.Text());
  _RunQuery(statement, sql, use, OnFailure::kThrow);
}

bool DomainDBHandler::_RunKept(const INTERNAL::Sql& sql, const RowVisitor& use,
                               OnFailure on_failure) {
  INTERNAL::StatementLoan loan(_State().kept, db_, sql);
  if (loan.Get().IsPrepared()) {
    sql.Bind(loan.Get());
  }
  bool is_run = false;
  try {
    is_run = _RunQuery(loan.Get(), sql, use, on_failure);
  } catch (const korvmailserver::LogException&) {
    loan.Spoil();
    throw;
  }
  if (!is_run) {
    loan.Spoil();
  }
  return is_run;
}

bool DomainDBHandler::_RunQuery(korvmailserver::Statement& statement, const INTERNAL::Sql& sql,
                                const RowVisitor& use, OnFailure on_failure) {
  const char* failure = nullptr;
  BASE::Progress progress("reading rows", 0);
  // Who stays silent is followed by another read, which waits.
  const int milliseconds = on_failure == OnFailure::kThrow ? kSelectBusyMilliseconds : 0;
  const postara::ScopeGuard wait_again([&] {
    if (milliseconds == 0) {
      sqlite3_busy_timeout(db_, kSelectBusyMilliseconds);
    }
  });
  // A text without any statement compiles, too, but cannot be stepped.
  if (!statement.IsPrepared() && sqlite3_errcode(db_) != SQLITE_OK) {
    failure = "Failed to prepare";
  } else if (sqlite3_busy_timeout(db_, milliseconds) != SQLITE_OK) {
    failure = "Failed to set busy timeout";
  } else if (!statement.ForEachRow([&](const auto& row) {
               progress.Step();
               return use(row);
             })) {
    failure = "sqlite3_step";
  }
  if (failure != nullptr && on_failure == OnFailure::kThrow) {
    ThrowSelectError(failure, db_, sql.Text(), __LINE__);
  }
  return failure == nullptr;
}

int DomainDBHandler::_InitPragma() {
  err_ = sqlite3_exec(db_, "pragma foreign_keys = on", nullptr, nullptr, nullptr);
  if (err_ != SQLITE_OK) {
    LOG_ERROR("exec db schema fail, err=[%d], %s", err_, sqlite3_errmsg(db_));
    return -1;
  }
  // At most 64 MiB, taken as needed, instead of 2: a refresh of 100,000 accounts then does not
  // spill half-done pages into the file, which would lock readers out before the commit.
  sqlite3_exec(db_, "pragma cache_size = -65536", nullptr, nullptr, nullptr);
  return 0;
}

int DomainDBHandler::_GetNowVersion() {
  int version = -1;
  try {
    for (const auto& row : ExecSelectCmd("PRAGMA user_version")) {
      try {
        version = std::stoi(row.at(0));
      } catch (const std::out_of_range&) {
        version = -1;
        LOG_ERROR("Failed to stoi [%s]", row.empty() ? "" : row[0].c_str());
      }
    }
  } catch (const std::exception&) {
    LOG_ERROR("failed to ExecSelectCmd");
    return -1;
  }
  return version;
}

// The scripts would add their tables to whatever the file holds.
bool DomainDBHandler::_IsOfAnother() {
  korvmailserver::Statement tables(db_, kCountTables);
  return tables.Step() == SQLITE_ROW && tables.Int(0) > 0 && tables.Int(1) == 0;
}

// Without domains on purpose, as the last one was deleted, does not count.
bool DomainDBHandler::_LacksDomains() {
  korvmailserver::Statement domains(db_, kCountDomains);
  return domains.Step() == SQLITE_ROW && domains.Int(0) == 0 && domains.Int(1) == 0;
}

int DomainDBHandler::_UpgradeDB(int version) {
  if (version < 0) {
    err_ = -1;
    return -1;
  }
  std::vector<std::string> scripts;
  if (!UTILS::DomainUtilGetSqliteCmds(scripts)) {
    LOG_ERROR("Get domain SQLCmd failed");
    err_ = -1;
    return -1;
  }
  if (static_cast<size_t>(version) >= scripts.size()) {
    return 0;
  }
  int result = SQLITE_OK;
  {
    BatchScope scope(this);
    result = _RunScripts(version, scripts);
    if (result == SQLITE_OK) {
      result = scope.Commit();
    }
    if (result != SQLITE_OK) {
      LOG_ERROR("exec db schema fail, err=[%d], %s", result, GetErrText().c_str());
    }
  }
  err_ = result;  // the end of the scope, which keeps the whole versions, has a result of its own
  return err_ == SQLITE_OK ? 0 : -1;
}

// Another process may have upgraded the file since its version was read, and a script that runs
// late would take it back to an older one. So the version is read again once nobody else can write.
int DomainDBHandler::_RunScripts(int version, const std::vector<std::string>& scripts) {
  const std::string take_the_lock;
  int result = exeCmds({take_the_lock}, true);
  if (result != SQLITE_OK) {
    return result;
  }
  const int now = _GetNowVersion();
  if (now < 0) {
    return SQLITE_ERROR;
  }
  const auto from = static_cast<size_t>(std::max(version, now));
  for (size_t i = from; result == SQLITE_OK && i < scripts.size(); ++i) {
    result = exeCmds({scripts[i], "pragma user_version = " + std::to_string(i + 1)}, true);
  }
  return result;
}

}  // namespace MDOMAIN::DB
