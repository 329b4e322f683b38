// One SQLite connection: opening and creating the file, batches, the count of a table.
//
// The journal mode stays SQLite's default. batch_scope.cpp holds the transactions over several
// batches.
#include "platform/include/db_handler.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <utility>

#include "platform/include/files.h"
#include "platform/include/lost_database.h"
#include "platform/include/maillog.h"
#include "platform/include/new_file.h"
#include "platform/include/sqlite.h"

namespace {

using korvmailserver::kLogError;
using korvmailserver::kServiceAccount;

constexpr unsigned kMode = 0644;
constexpr mode_t kFolderMode = 0755;
constexpr const char* kJournals[] = {"-journal", "-wal", "-shm"};

constexpr char kCountRows[] = "SELECT COUNT(*) FROM \"%w\"";

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return path.substr(0, slash == std::string::npos ? 0 : slash);
}

enum class Found { kFile, kNothing, kUnusable };

// What stands at the path; `why` is set when it cannot be a database.
Found Look(const std::string& path, std::string& why) {
  struct stat info {};
  if (!korvmailserver::IsSafeFolder(FolderOf(path), why)) {
    return Found::kUnusable;
  }
  if (lstat(path.c_str(), &info) != 0) {
    why = std::strerror(errno);
    return errno == ENOENT ? Found::kNothing : Found::kUnusable;
  }
  if (!S_ISREG(info.st_mode)) {
    why = S_ISDIR(info.st_mode)   ? "it is a directory"
          : S_ISLNK(info.st_mode) ? "it is a symbolic link, which is not followed"
                                  : "it is not a regular file";
    return Found::kUnusable;
  }
  if (info.st_size == 1) {  // SQLite takes this size for an empty file and would overwrite it
    why = "file is not a database";
    return Found::kUnusable;
  }
  return Found::kFile;
}

// On a new host the first database comes before its folder. One log line on failure.
bool MakeFolderOf(const std::string& path) {
  const std::string folder = FolderOf(path);
  if (folder.empty() || KLIBCFileExist(folder.c_str())) {
    return true;
  }
  switch (korvmailserver::MakeServiceFolder(folder, kFolderMode)) {
    case korvmailserver::FolderResult::kDone:
      return true;
    case korvmailserver::FolderResult::kNoAccount:
      maillog(kLogError, "Cannot create database [%s]: there is no account [%s]", path.c_str(),
              kServiceAccount);
      return false;
    default:
      maillog(kLogError, "Cannot create database [%s]: %m", path.c_str());
      return false;
  }
}

// Whether this process may write to the folder of a file, or to the nearest one above that exists.
bool MayCreate(const std::string& path) {
  std::string folder = FolderOf(path);
  while (!folder.empty() && !KLIBCFileExist(folder.c_str())) {
    folder = FolderOf(folder);
  }
  return eaccess(folder.empty() ? "/" : folder.c_str(), W_OK | X_OK) == 0;
}

// What stands around every batch. Compiled once for a connection, as a change is many of them.
constexpr std::array<const char*, 4> kFrames = {"BEGIN IMMEDIATE", "COMMIT", "SAVEPOINT batch",
                                                "RELEASE batch"};

// Of each connected handler.
struct Opened {
  pid_t process = 0;
  // The file, as the path last led to it; both 0 while that is not known.
  dev_t device = 0;
  ino_t inode = 0;
  std::array<sqlite3_stmt*, kFrames.size()> frames = {};
};
std::map<const DBHandler*, Opened>& AllOpened() {
  static auto& opened = *new std::map<const DBHandler*, Opened>();
  return opened;
}

// Null for another text, or where it does not compile.
sqlite3_stmt* FrameOf(Opened& opened, sqlite3* db, const char* sql) {
  for (size_t i = 0; i < kFrames.size(); ++i) {
    if (std::strcmp(kFrames[i], sql) == 0) {
      if (opened.frames[i] == nullptr) {
        sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &opened.frames[i], nullptr);
      }
      return opened.frames[i];
    }
  }
  return nullptr;
}

void FinalizeFrames(Opened& opened) {
  for (sqlite3_stmt*& frame : opened.frames) {
    sqlite3_finalize(std::exchange(frame, nullptr));
  }
}

std::map<const DBHandler*, std::function<void()>>& ClosingActions() {
  static auto& actions = *new std::map<const DBHandler*, std::function<void()>>();
  return actions;
}

bool IsEmptyFile(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_size == 0;
}

// Renames a database file and what belongs to it: the journal of a broken file would otherwise be
// played back into the next file of that name.
int RenameDatabase(const std::string& from, const std::string& to) {
  if (rename(from.c_str(), to.c_str()) != 0) {
    return -1;
  }
  for (const char* journal : kJournals) {
    unlink((to + journal).c_str());
    rename((from + journal).c_str(), (to + journal).c_str());
  }
  return 0;
}

}  // namespace

DBHandler::DBHandler(const std::string& path, const std::string& schema)
    : path_(path), schema_(schema) {}

DBHandler::~DBHandler() {
  disconnect();
  ClosingActions().erase(this);
}

void DBHandler::beforeClosing(std::function<void()> action) {
  ClosingActions()[this] = std::move(action);
}

int DBHandler::connect() {
  if (db_ != nullptr) {
    return SQLITE_OK;
  }
  std::string why;
  const Found found = Look(path_, why);
  bool created = false;
  if (found == Found::kNothing && refuses_lost_ && korvmailserver::IsDatabaseLost(path_)) {
    return err_ = SQLITE_CANTOPEN;
  }
  if (found == Found::kNothing && reads_missing_ && !MayCreate(path_)) {
    return err_ = _OpenStandIn();
  }
  if (found == Found::kNothing && !_CreateFile(created)) {
    return err_ = SQLITE_CANTOPEN;
  }
  if (found == Found::kUnusable) {
    maillog(kLogError, "Cannot open database [%s]: %s", path_.c_str(), why.c_str());
    return err_ = SQLITE_CANTOPEN;
  }
  if (found == Found::kFile) {
    korvmailserver::MendServiceFile(path_, kMode);
  }
  const int result = _OpenAndCheck();
  if (result != SQLITE_OK) {
    maillog(kLogError, "Cannot open database [%s]: %s", path_.c_str(), err_text_.c_str());
    disconnect();
    // Another process may have taken the new file over: what it wrote there stays.
    if (created && IsEmptyFile(path_)) {
      unlink(path_.c_str());
    }
  } else if (refuses_lost_) {
    korvmailserver::NoteDatabase(path_);
  }
  return err_ = result;
}

// A new, empty file, which has its owner and mode before it has its name. A file that another
// process made in the meantime is as good. One log line on failure.
bool DBHandler::_CreateFile(bool& created) {
  if (!MakeFolderOf(path_)) {
    return false;
  }
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    maillog(kLogError, "Cannot set the owner of [%s]: there is no account [%s]", path_.c_str(),
            kServiceAccount);
    return false;
  }
  korvmailserver::NewFile file(path_);
  created = file.Open() && file.SetOwner(uid, gid) && file.Create(kMode);
  if (!created && errno != EEXIST) {
    maillog(kLogError, "Cannot create database [%s]: %m", path_.c_str());
    return false;
  }
  return true;
}

// An empty database in memory with the schema, in the place of the file that is missing.
int DBHandler::_OpenStandIn() {
  is_stand_in_ = true;
  AllOpened()[this] = {getpid()};
  int result = sqlite3_open_v2(":memory:", &db_, SQLITE_OPEN_READWRITE, nullptr);
  if (result == SQLITE_OK && !schema_.empty()) {
    result = _ExecText(schema_.c_str());
    forbidWritesInMemory();
  }
  if (result != SQLITE_OK) {
    _KeepFailure(result);
    maillog(kLogError, "Cannot open database [%s]: %s", path_.c_str(), err_text_.c_str());
    disconnect();
  }
  return result;
}

void DBHandler::forbidWritesInMemory() {
  if (is_stand_in_) {
    sqlite3_exec(db_, "PRAGMA query_only = ON", nullptr, nullptr, nullptr);
  }
}

// Opens the file, for reading where it cannot be written (SQLite does so without a word), reads its
// first page, and gives it the schema when it has none at all.
int DBHandler::_OpenAndCheck() {
  // Without the lock that would let threads share it, and be taken for every value that is read.
  constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  AllOpened()[this] = {getpid()};
  const int result = sqlite3_open_v2(path_.c_str(), &db_, kFlags, nullptr);
  if (result != SQLITE_OK) {
    _KeepFailure(result);
    const int error = db_ == nullptr ? 0 : sqlite3_system_errno(db_);
    err_text_ += error == 0 ? "" : std::string(": ") + std::strerror(error);
    return result;
  }
  korvmailserver::MakeWatchable(db_);
  sqlite3_busy_timeout(db_, busy_timeout_);
  const int tables = GetTableDataCount("sqlite_master");
  if (tables < 0) {
    return err_;
  }
  return tables > 0 || schema_.empty() ? SQLITE_OK : _RunSchema();
}

// Several processes may find the same new file empty: the first of them gives it the schema.
int DBHandler::_RunSchema() {
  int result = _ExecText("BEGIN IMMEDIATE");
  if (result != SQLITE_OK) {
    return result;
  }
  const int tables = GetTableDataCount("sqlite_master");
  if (tables <= 0) {
    result = tables == 0 ? _ExecText(schema_.c_str()) : err_;
  }
  if (result == SQLITE_OK) {
    result = _ExecText("COMMIT");
  }
  if (result != SQLITE_OK) {
    _RollBack();
  }
  return result;
}

// SQLite knows which file it opened, and is asked once: from then on a look at the path is enough.
DBHandler::FileNow DBHandler::lookAtFile() const {
  struct stat info {};
  if (db_ == nullptr) {
    return FileNow::kSame;
  }
  if (_IsOfOtherProcess()) {
    return FileNow::kOther;
  }
  if (stat(path_.c_str(), &info) != 0) {
    return is_stand_in_ || errno != ENOENT ? FileNow::kSame : FileNow::kMissing;
  }
  Opened& opened = AllOpened()[this];
  if (opened.inode == info.st_ino && opened.device == info.st_dev) {
    return FileNow::kSame;
  }
  int has_moved = 1;  // what stands in for a missing file knows of none
  sqlite3_file_control(db_, "main", SQLITE_FCNTL_HAS_MOVED, &has_moved);
  if (has_moved == 0) {
    opened.device = info.st_dev;
    opened.inode = info.st_ino;
  }
  return has_moved != 0 ? FileNow::kOther : FileNow::kSame;
}

bool DBHandler::isReplaced() const {
  return lookAtFile() == FileNow::kOther;
}

bool DBHandler::_IsOfOtherProcess() const {
  const auto opened = AllOpened().find(this);
  return db_ != nullptr && opened != AllOpened().end() && opened->second.process != getpid();
}

// Closing it would end the transaction of the process that it belongs to.
void DBHandler::_LeaveToParent() {
  static auto* left = new std::vector<sqlite3*>();
  left->push_back(db_);
  if (std::exchange(scope_open_, false)) {
    scope_lost_ = SQLITE_ABORT;
  }
}

void DBHandler::disconnect() {
  if (db_ == nullptr) {
    return;
  }
  const bool is_parents = _IsOfOtherProcess();
  if (is_parents) {
    _LeaveToParent();
  }
  if (scope_open_ && _EndTransaction() != SQLITE_OK) {
    maillog(kLogError, "Cannot commit to database [%s]: %s", path_.c_str(), err_text_.c_str());
  }
  const auto action = ClosingActions().find(this);
  if (action != ClosingActions().end()) {
    action->second();
  }
  if (!is_parents) {
    const auto opened = AllOpened().find(this);
    if (opened != AllOpened().end()) {
      FinalizeFrames(opened->second);
    }
    sqlite3_close_v2(db_);  // waits for statements that are still in use
  }
  db_ = nullptr;
  AllOpened().erase(this);
  is_stand_in_ = false;
}

int DBHandler::exeCmds(const SQLCmd& cmds, bool transaction) {
  if (db_ != nullptr && cmds.empty()) {
    return err_ = SQLITE_OK;
  }
  const auto run_all = [&] { return _RunAll(cmds); };
  if (transaction) {
    return _RunGuarded(
        [&] { return scope_depth_ > 0 ? _RunSavepoint(run_all) : _RunTransaction(run_all); });
  }
  return _RunGuarded(run_all);
}

int DBHandler::exeSteps(const std::vector<SqlStep>& steps) {
  if (db_ != nullptr && steps.empty()) {
    return err_ = SQLITE_OK;
  }
  const auto run_all = [&] {
    for (const SqlStep& step : steps) {
      const int result = step.run(db_);
      if (result != SQLITE_OK) {
        return _KeepFailure(result);
      }
    }
    return SQLITE_OK;
  };
  return _RunGuarded(
      [&] { return scope_depth_ > 0 ? _RunSavepoint(run_all) : _RunTransaction(run_all); });
}

int DBHandler::_RunGuarded(const std::function<int()>& run) {
  if (_IsOfOtherProcess()) {
    disconnect();
  }
  if (db_ == nullptr) {
    err_text_ = "not connected";
    return err_ = SQLITE_MISUSE;
  }
  if (_NoticeLostTransaction(SQLITE_ABORT)) {
    err_text_ = "a failed query rolled the transaction back";
  }
  if (scope_lost_ != SQLITE_OK) {
    return err_ = scope_lost_;
  }
  const int result = run();
  _NoticeLostTransaction(result);
  return err_ = result;
}

// A full disk and the like make SQLite roll everything back, in a batch or in a query between two.
// The earlier batches of the scope are gone, so the later ones must not succeed as if they were
// not.
bool DBHandler::_NoticeLostTransaction(int result) {
  if (!scope_open_ || sqlite3_get_autocommit(db_) == 0) {
    return false;
  }
  scope_open_ = false;
  scope_lost_ = result == SQLITE_OK ? SQLITE_ABORT : result;
  return true;
}

int DBHandler::_RunTransaction(const std::function<int()>& work) {
  int result = _ExecText("BEGIN IMMEDIATE");
  if (result != SQLITE_OK) {
    return result;
  }
  result = work();
  if (result == SQLITE_OK) {
    result = _ExecText("COMMIT");
  }
  if (result != SQLITE_OK) {
    _RollBack();
  }
  return result;
}

int DBHandler::_RunSavepoint(const std::function<int()>& work) {
  int result = scope_open_ ? SQLITE_OK : _ExecText("BEGIN IMMEDIATE");
  if (result != SQLITE_OK) {
    return result;
  }
  scope_open_ = true;
  result = _ExecText("SAVEPOINT batch");
  if (result != SQLITE_OK) {
    return result;
  }
  result = work();
  if (result == SQLITE_OK) {
    return _ExecText("RELEASE batch");
  }
  // SQLite rolls back everything where the disk fails a statement of one row, and the statement
  // alone where it is of several: here it is everything.
  const int kind = result & 0xff;
  if (kind == SQLITE_FULL || kind == SQLITE_IOERR) {
    _RollBack();
  } else if (sqlite3_get_autocommit(db_) == 0) {
    sqlite3_exec(db_, "ROLLBACK TO batch; RELEASE batch", nullptr, nullptr, nullptr);
  }
  return result;
}

int DBHandler::_RunAll(const SQLCmd& cmds) {
  for (const std::string& cmd : cmds) {
    const int result = _ExecText(cmd.c_str());
    if (result != SQLITE_OK) {
      return result;
    }
  }
  return SQLITE_OK;
}

int DBHandler::_ExecText(const char* sql) {
  const auto opened = AllOpened().find(this);
  sqlite3_stmt* const frame =
      opened == AllOpened().end() ? nullptr : FrameOf(opened->second, db_, sql);
  if (frame != nullptr) {
    sqlite3_step(frame);
  }
  const int result =
      frame != nullptr ? sqlite3_reset(frame) : sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
  return result == SQLITE_OK ? result : _KeepFailure(result);
}

// Keeps the text, because the rollback that follows replaces SQLite's own by "not an error".
int DBHandler::_KeepFailure(int result) {
  err_text_ = db_ == nullptr ? sqlite3_errstr(result) : sqlite3_errmsg(db_);
  korvmailserver::NoteDatabaseFailure(db_, result, path_);
  return err_ = result;
}

void DBHandler::_RollBack() {
  if (sqlite3_get_autocommit(db_) == 0) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

void DBHandler::setBusyTimeout(int milliseconds) {
  busy_timeout_ = milliseconds;
  if (db_ != nullptr) {
    sqlite3_busy_timeout(db_, milliseconds);
  }
}

int DBHandler::GetTableDataCount(const std::string& table) {
  if (db_ == nullptr) {
    return -1;
  }
  korvmailserver::Statement select(db_, korvmailserver::FormatSql(kCountRows, table.c_str()));
  const int result = select.Step();
  if (result != SQLITE_ROW) {
    _KeepFailure(result);
    return -1;
  }
  err_ = SQLITE_OK;
  return static_cast<int>(std::min<sqlite3_int64>(select.Int64(0), INT_MAX));
}

int DBHandler::regenDB() {
  disconnect();
  const std::string aside = path_ + ".broken";
  const bool moved = RenameDatabase(path_, aside) == 0;
  if (!moved && errno != ENOENT) {
    maillog(kLogError, "Cannot move database [%s] aside: %m", path_.c_str());
    return err_ = SQLITE_CANTOPEN;
  }
  const int result = connect();
  if (result != SQLITE_OK && moved) {
    RenameDatabase(aside, path_);
  }
  return result;
}
