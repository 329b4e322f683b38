#include "lib-domain/sync/file_copies.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

using korvmailserver::Connection;

constexpr int kBusyMilliseconds = 10000;
constexpr mode_t kFolderMode = 0700;
constexpr const char* kModelEnd = "_DOMAIN.db";

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
bool CopyBytes(const std::string& from, const std::string& to, bool is_lasting,
               std::string& error) {
  if (!is_lasting) {
    std::error_code failed;
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, failed);
    return !failed || failed == std::errc::no_such_file_or_directory ||
           Fail(from, failed.message(), error);
  }
  std::string bytes;
  if (korvmailserver::ReadFile(from, bytes) < 0) {
    return errno == ENOENT || Fail(from, std::strerror(errno), error);
  }
  return korvmailserver::ReplaceFile(to, bytes, S_IRUSR | S_IWUSR) == 0 ||
         Fail(to, std::strerror(errno), error);
}

// SQLite copies pages under its own locks. A reader's transaction waits for a writer, which the
// copying itself would not.
int CopyDatabase(const std::string& from, const std::string& to, bool is_lasting,
                 std::string& reason) {
  Connection source;
  Connection copy;
  int result = source.Open(from, Connection::Mode::kWrite, kBusyMilliseconds);
  result = result == SQLITE_OK ? source.Run("BEGIN; SELECT count(*) FROM sqlite_master") : result;
  if (result != SQLITE_OK) {
    reason = source.Error();
    return result;
  }
  result = copy.Open(to, Connection::Mode::kCreate, kBusyMilliseconds);
  if (result == SQLITE_OK && !is_lasting) {
    result = copy.Run("PRAGMA synchronous = OFF");
  }
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

bool CopyFile(const std::string& from, const std::string& to, const CopiedAs& as,
              std::string& error) {
  struct stat info {};
  if (lstat(from.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return true;
  }
  std::string reason;
  const int result =
      EndsWith(from, ".db") ? CopyDatabase(from, to, as.is_lasting, reason) : SQLITE_NOTADB;
  const bool has_no_pages = result == SQLITE_NOTADB || result == SQLITE_CORRUPT;
  if (has_no_pages ? !CopyBytes(from, to, as.is_lasting, error)
                   : result != SQLITE_OK && !Fail(from, reason, error)) {
    return false;
  }
  return (lchown(to.c_str(), as.uid, as.gid) == 0 && chmod(to.c_str(), info.st_mode & 0777) == 0) ||
         !postara::sdk::Exist(to) || Fail(to, std::strerror(errno), error);
}

}  // namespace

bool CopyDatabases(const std::string& folder, const std::vector<std::string>& further,
                   const CopiedAs& as, std::string& error) {
  std::vector<std::string> paths = {PATHS::SettingsDb(), PATHS::AliasDb(), PATHS::KeyStoreDb()};
  paths.insert(paths.end(), further.begin(), further.end());
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(PATHS::EtcDir(), names) < 0 && errno != ENOENT) {
    return Fail(PATHS::EtcDir(), std::strerror(errno), error);
  }
  for (const std::string& name : names) {
    if (name[0] != '.' && EndsWith(name, kModelEnd)) {
      paths.push_back(PATHS::EtcDir() + name);
    }
  }
  for (const std::string& path : paths) {
    if (!CopyFile(path, folder + path.substr(path.rfind('/')), as, error)) {
      return false;
    }
  }
  return true;
}

bool CopyFolder(const std::string& from, const std::string& folder, const CopiedAs& as,
                std::string& error) {
  const std::string to = folder + from.substr(from.rfind('/'));
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(from, names) < 0) {
    return errno == ENOENT || Fail(from, std::strerror(errno), error);
  }
  if (mkdir(to.c_str(), kFolderMode) != 0 || lchown(to.c_str(), as.uid, as.gid) != 0) {
    return Fail(to, std::strerror(errno), error);
  }
  for (const std::string& name : names) {
    if (!CopyFile(Below(from, name), Below(to, name), as, error)) {
      return false;
    }
  }
  if (as.is_lasting) {
    korvmailserver::SyncFolderOf(to + "/");
  }
  return true;
}

int HoldFolder(const std::string& folder) {
  const int held = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (held >= 0 && flock(held, LOCK_EX | LOCK_NB) != 0) {
    close(held);
    return -1;
  }
  return held;
}

}  // namespace MDOMAIN::UTILS::INTERNAL
