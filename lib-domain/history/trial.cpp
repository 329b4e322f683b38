#include "lib-domain/history/trial.h"

#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "lib-domain/api/bcc/instance.h"
#include "lib-domain/base/account_settings.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/address_change.h"
#include "lib-domain/db/other_model.h"
#include "lib-domain/sync/file_copies.h"
#include "platform/include/batch_scope.h"
#include "platform/include/key_store.h"
#include "platform/include/lost_database.h"
#include "platform/include/root_path.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::HISTORY {

namespace {

namespace fs = std::filesystem;

constexpr const char* kPrefix = "mdomain-trial.";

std::string TemporaryFolder() {
  std::error_code error;
  std::string folder = fs::temp_directory_path(error).string();
  folder.erase(folder.find_last_not_of('/') + 1);
  return error ? "/tmp" : folder;
}

bool IsOwn(const fs::path& folder) {
  struct stat info {};
  return lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid();
}

void RemoveUnheld(const std::string& below) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(below, error)) {
    if (entry.path().filename().string().rfind(kPrefix, 0) == 0 && IsOwn(entry.path())) {
      const int held = UTILS::INTERNAL::HoldFolder(entry.path());
      if (held >= 0) {
        fs::remove_all(entry.path(), error);
        close(held);
      }
    }
  }
}

// What the root in force has at `path`, seen at the same place of the new root.
bool Link(const std::string& folder, const std::string& path, std::string& error) {
  const std::string target = korvmailserver::UnderRoot(path);
  if (symlink(target.c_str(), (folder + path).c_str()) != 0) {
    error = folder + path + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

// What may only be read in its place is written here.
bool AllowWriting(const std::string& folder, std::string& error) {
  std::error_code failed;
  for (const auto& entry : fs::recursive_directory_iterator(folder, failed)) {
    if (!entry.is_symlink()) {
      fs::permissions(entry.path(), fs::perms::owner_read | fs::perms::owner_write,
                      fs::perm_options::add, failed);
    }
  }
  error = failed ? folder + ": " + failed.message() : "";
  return !failed;
}

// The registry and the maps are not copied, so nothing keeps them in line.
bool ForgetFollowers(const std::string& etc, std::string& error) {
  std::error_code failed;
  for (const auto& entry : fs::directory_iterator(etc, failed)) {
    const std::string name = entry.path().filename();
    constexpr std::string_view kEnd = "_DOMAIN.db";
    const bool is_model = name.size() > kEnd.size() &&
                          name.compare(name.size() - kEnd.size(), kEnd.size(), kEnd) == 0;
    if (is_model && !DB::INTERNAL::ForgetFollowersIn(entry.path())) {
      error = korvmailserver::LastDatabaseFailure();
      return false;
    }
  }
  return true;
}

}  // namespace

Trial::~Trial() {
  if (held_ >= 0) {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    close(held_);
  }
}

bool Trial::_MakeFolder(std::string& error) {
  const std::string below = TemporaryFolder();
  RemoveUnheld(below);
  constexpr int kTries = 10;  // another run may take a folder that nobody holds yet for a left one
  for (int i = 0; i < kTries && held_ < 0; ++i) {
    folder_ = below + "/" + kPrefix + "XXXXXX";
    if (mkdtemp(folder_.data()) == nullptr) {
      break;
    }
    held_ = UTILS::INTERNAL::HoldFolder(folder_);
  }
  error = held_ >= 0 ? "" : folder_ + ": " + std::strerror(errno);
  return held_ >= 0;
}

bool Trial::Copy(std::string& error) {
  if (getauxval(AT_SECURE) != 0) {
    error = "that works only with the rights of the caller, not in a set-id copy";
    return false;
  }
  if (!_MakeFolder(error)) {
    return false;
  }
  const auto place = [this](const std::string& path) {
    return folder_ + path.substr(korvmailserver::RootPrefix().size());
  };
  const std::string etc = place(PATHS::EtcDir());
  std::error_code failed;
  fs::create_directories(etc, failed);
  fs::create_directories(folder_ + "/var/run", failed);
  const std::string spool = place(PATHS::DisclaimerBackupDir());
  fs::create_directories(fs::path(spool).parent_path(), failed);
  if (failed) {
    error = folder_ + ": " + failed.message();
    return false;
  }
  const UTILS::INTERNAL::CopiedAs owner = {geteuid(), getegid(), false};
  const std::string backup = PATHS::DisclaimerBackupDir();
  return Link(folder_, "/etc", error) &&
         UTILS::INTERNAL::CopyDatabases(etc, {PATHS::HistoryDb()}, owner, error) &&
         UTILS::INTERNAL::CopyFolder(PATHS::DisclaimerDir(), etc, owner, error) &&
         UTILS::INTERNAL::CopyFolder(PATHS::EtcDir() + "dkim.key", etc, owner, error) &&
         UTILS::INTERNAL::CopyFolder(backup, fs::path(spool).parent_path(), owner, error) &&
         AllowWriting(folder_ + "/var", error) && ForgetFollowers(etc, error);
}

// What lives as long as the process and knows its files by path. Whatever else is kept looks at the
// path before each use.
struct WithinTrial::Places {
  explicit Places(const std::string& folder) : root(folder) {}
  ~Places() { korvmailserver::ForgetDatabasesBelow(korvmailserver::RootPrefix()); }

  korvmailserver::OtherRoot root;
  BASE::OtherAccountSettings account_settings;
  DB::ReadScope::OtherModel model;
  API::INTERNAL::OtherBccInstance copies;
};

WithinTrial::WithinTrial(const Trial& trial) : places_(std::make_unique<Places>(trial.Folder())) {}

WithinTrial::~WithinTrial() = default;

bool WithinTrial::IsPossible() {
  return !korvmailserver::OtherRoot::IsInForce() && !BatchScope::IsAnyOpen() &&
         korvmailserver::KeyStoreView::Moment() == 0;
}

}  // namespace MDOMAIN::HISTORY
