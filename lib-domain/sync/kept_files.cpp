// The copies grow in a hidden folder that its maker holds locked, and get their name as a whole.
// Hidden folders that nobody holds were left by killed runs; the next run removes them.
#include "lib-domain/sync/kept_files.h"

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
#include "lib-domain/sync/file_copies.h"
#include "platform/include/files.h"
#include "platform/include/scope_guard.h"

namespace MDOMAIN::UTILS {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr const char* kHiddenPrefix = ".kept-";

bool Fail(const std::string& path, const std::string& reason, std::string& error) {
  error = path + ": " + reason;
  return false;
}

void RemoveUnfinished() {
  std::vector<std::string> names;
  postara::sdk::EnumDirectory(PATHS::EtcDir(), names);
  for (const std::string& name : names) {
    const std::string folder = PATHS::EtcDir() + name;
    const int held = name.rfind(kHiddenPrefix, 0) == 0 ? INTERNAL::HoldFolder(folder) : -1;
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
  INTERNAL::CopiedAs owner;
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
  const int held = INTERNAL::HoldFolder(ready);
  const postara::ScopeGuard release([held] { close(held); });
  if (lchown(ready.c_str(), owner.uid, owner.gid) != 0 || chmod(ready.c_str(), kFolderMode) != 0) {
    Fail(ready, std::strerror(errno), error);
  } else if (INTERNAL::CopyDatabases(ready, {PATHS::EmailOwnerDb()}, owner, error) &&
             INTERNAL::CopyFolder(PATHS::DisclaimerDir(), ready, owner, error) &&
             INTERNAL::CopyFolder(PATHS::EtcDir() + "dkim.key", ready, owner, error)) {
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
