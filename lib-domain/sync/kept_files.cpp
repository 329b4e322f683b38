// The copies grow in a hidden folder that its maker holds locked, and get their name as a whole.
// Hidden folders that nobody holds were left by killed runs; the next run removes them.
#include "lib-domain/sync/kept_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "platform/include/scope_guard.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::UTILS {

namespace {

using korvmailserver::Connection;

constexpr int kBusyMilliseconds = 10000;
constexpr mode_t kFolderMode = 0700;
constexpr const char* kHiddenPrefix = ".kept-";
constexpr const char* kModelEnd = "_DOMAIN.db";

struct Owner {
  uid_t uid = 0;
  gid_t gid = 0;
};

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string Below(const std::string& folder, const std::string& name) {
  return std::string(folder).append("/").append(name);
}

bool Fail(const std::string& path, const std::string& reason, std::string& error) {
  error = path + ": " + reason;
  return false;
}

// Of another program's file, or of one that is damaged, the bytes as they are.
bool CopyBytes(const std::string& from, const std::string& to, std::string& error) {
  std::string bytes;
  if (korvmailserver::ReadFile(from, bytes) < 0) {
    return errno == ENOENT || Fail(from, std::strerror(errno), error);
  }
  return korvmailserver::ReplaceFile(to, bytes, S_IRUSR | S_IWUSR) == 0 ||
         Fail(to, std::strerror(errno), error);
}

// SQLite copies pages under its own locks. A reader's transaction waits for a writer, which the
// copying itself would not.
int CopyDatabase(const std::string& from, const std::string& to, std::string& reason) {
  Connection source;
  Connection copy;
  int result = source.Open(from, Connection::Mode::kWrite, kBusyMilliseconds);
  result = result == SQLITE_OK ? source.Run("BEGIN; SELECT count(*) FROM sqlite_master") : result;
  if (result != SQLITE_OK) {
    reason = source.Error();
    return result;
  }
  result = copy.Open(to, Connection::Mode::kCreate, kBusyMilliseconds);
  if (result != SQLITE_OK) {
    reason = copy.Error();
    return result;
  }
  sqlite3_backup* backup = sqlite3_backup_init(copy.Get(), "main", source.Get(), "main");
  sqlite3_backup_step(backup, -1);
  result = sqlite3_backup_finish(backup);
  reason = sqlite3_errmsg(copy.Get());
  return result;
}

bool KeepFile(const std::string& from, const std::string& to, const Owner& owner,
              std::string& error) {
  struct stat info {};
  if (lstat(from.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return true;
  }
  std::string reason;
  const int result = EndsWith(from, ".db") ? CopyDatabase(from, to, reason) : SQLITE_NOTADB;
  const bool has_no_pages = result == SQLITE_NOTADB || result == SQLITE_CORRUPT;
  if (has_no_pages ? !CopyBytes(from, to, error)
                   : result != SQLITE_OK && !Fail(from, reason, error)) {
    return false;
  }
  return (lchown(to.c_str(), owner.uid, owner.gid) == 0 &&
          chmod(to.c_str(), info.st_mode & 0777) == 0) ||
         !postara::sdk::Exist(to) || Fail(to, std::strerror(errno), error);
}

bool KeepDatabases(const std::string& folder, const Owner& owner, std::string& error) {
  std::vector<std::string> paths = {PATHS::SettingsDb(), PATHS::AliasDb(), PATHS::EmailOwnerDb(),
                                    PATHS::KeyStoreDb()};
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(PATHS::EtcDir(), names) < 0) {
    return Fail(PATHS::EtcDir(), std::strerror(errno), error);
  }
  for (const std::string& name : names) {
    if (name[0] != '.' && EndsWith(name, kModelEnd)) {
      paths.push_back(PATHS::EtcDir() + name);
    }
  }
  for (const std::string& path : paths) {
    if (!KeepFile(path, folder + path.substr(path.rfind('/')), owner, error)) {
      return false;
    }
  }
  return true;
}

bool KeepTexts(const std::string& folder, const Owner& owner, std::string& error) {
  const std::string from = PATHS::DisclaimerDir();
  const std::string to = folder + from.substr(from.rfind('/'));
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(from, names) < 0) {
    return errno == ENOENT || Fail(from, std::strerror(errno), error);
  }
  if (mkdir(to.c_str(), kFolderMode) != 0 || lchown(to.c_str(), owner.uid, owner.gid) != 0) {
    return Fail(to, std::strerror(errno), error);
  }
  for (const std::string& name : names) {
    if (!KeepFile(Below(from, name), Below(to, name), owner, error)) {
      return false;
    }
  }
  korvmailserver::SyncFolderOf(to + "/");
  return true;
}

// A descriptor that holds the folder until it is closed; -1 when somebody else does.
int Hold(const std::string& folder) {
  const int held = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (held >= 0 && flock(held, LOCK_EX | LOCK_NB) != 0) {
    close(held);
    return -1;
  }
  return held;
}

void RemoveUnfinished() {
  std::vector<std::string> names;
  postara::sdk::EnumDirectory(PATHS::EtcDir(), names);
  for (const std::string& name : names) {
    const std::string folder = PATHS::EtcDir() + name;
    const int held = name.rfind(kHiddenPrefix, 0) == 0 ? Hold(folder) : -1;
    if (held >= 0) {
      std::error_code ignored;
      std::filesystem::remove_all(folder, ignored);
      close(held);
    }
  }
}

// Gives the folder the first name of this second that is free.
bool PlaceFolder(const std::string& ready, std::string& folder, std::string& error) {
  constexpr int kMostNames = 100;
  const time_t now = time(nullptr);
  struct tm utc {};
  char text[sizeof("kept-20261122T040506Z")] = {};
  (void)strftime(text, sizeof(text), "kept-%Y%m%dT%H%M%SZ", gmtime_r(&now, &utc));
  const std::string first = PATHS::EtcDir() + text;
  for (int number = 1; number <= kMostNames; ++number) {
    const std::string name = number == 1 ? first : first + "-" + std::to_string(number);
    // A folder that has something in it, as a kept one has, is not replaced.
    if (rename(ready.c_str(), name.c_str()) == 0) {
      korvmailserver::SyncFolderOf(name);
      folder = name;
      return true;
    }
    if (errno != EEXIST && errno != ENOTEMPTY) {
      break;
    }
  }
  return Fail(first, std::strerror(errno), error);
}

bool MakeCopies(std::string& folder, std::string& error) {
  Owner owner;
  if (mailUGidGet(korvmailserver::kServiceAccount, &owner.uid, &owner.gid) < 0) {
    return Fail(PATHS::EtcDir(), std::string("no account ") + korvmailserver::kServiceAccount,
                error);
  }
  // A machine that never had anything has no folder yet.
  if (korvmailserver::MakeServiceFolder(PATHS::EtcDir(), 0755) ==
      korvmailserver::FolderResult::kFailed) {
    return Fail(PATHS::EtcDir(), std::strerror(errno), error);
  }
  RemoveUnfinished();
  std::string ready = PATHS::EtcDir() + kHiddenPrefix + "XXXXXX";
  if (mkdtemp(ready.data()) == nullptr) {
    return Fail(ready, std::strerror(errno), error);
  }
  const int held = Hold(ready);
  const postara::ScopeGuard release([held] { close(held); });
  if (lchown(ready.c_str(), owner.uid, owner.gid) != 0 || chmod(ready.c_str(), kFolderMode) != 0) {
    Fail(ready, std::strerror(errno), error);
  } else if (KeepDatabases(ready, owner, error) && KeepTexts(ready, owner, error)) {
    korvmailserver::SyncFolderOf(ready + "/");
    return PlaceFolder(ready, folder, error);
  }
  std::error_code ignored;
  std::filesystem::remove_all(ready, ignored);
  return false;
}

}  // namespace

bool KeepFilesAside(std::string& folder) {
  std::string error;
  if (!MakeCopies(folder, error)) {
    LOG_ERROR("Failed to keep the files of this machine aside: %s", error.c_str());
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
