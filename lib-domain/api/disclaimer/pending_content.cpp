#include "lib-domain/api/disclaimer/pending_content.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/scope_guard.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

// FNV-1a: it ties a file to a list, it protects nothing.
std::string Fingerprint(const std::string& text) {
  uint64_t hash = 14695981039346656037ULL;
  for (const unsigned char byte : text) {
    hash = (hash ^ byte) * 1099511628211ULL;
  }
  char hex[17];
  (void)snprintf(hex, sizeof(hex), "%016llx", static_cast<unsigned long long>(hash));
  return hex;
}

bool HasName(int file, const std::string& path) {
  struct stat held {};
  struct stat named {};
  return fstat(file, &held) == 0 && lstat(path.c_str(), &named) == 0 &&
         held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

// A descriptor that holds the file; -1 when it is gone, by whoever held it before, or is held.
int Hold(const std::string& path, Others others) {
  const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  int result = -1;
  do {
    result = file < 0 ? -1 : flock(file, others == Others::kWait ? LOCK_EX : LOCK_EX | LOCK_NB);
  } while (result != 0 && file >= 0 && errno == EINTR);
  if (result == 0 && HasName(file, path)) {
    return file;
  }
  if (file >= 0) {
    close(file);
  }
  return -1;
}

// The list is read behind the lock: its writer may have stored it in the meantime.
int Settle(int domain_idx, const std::string& path, Others others) {
  const int file = Hold(path, others);
  if (file < 0) {
    return 0;
  }
  const postara::ScopeGuard release([file] { close(file); });
  std::string stored;
  if (mailConfGet(DisclaimerListKey(domain_idx), stored) < 0) {
    return -1;
  }
  const bool is_of_list = path == PendingContentPath(domain_idx, stored);
  const int result = is_of_list ? rename(path.c_str(), PATHS::DisclaimerContent(domain_idx).c_str())
                                : postara::sdk::Unlink(path);
  if (result < 0) {
    LOG_ERROR("Failed to %s [%s], %m", is_of_list ? "rename" : "remove", path.c_str());
  }
  return result;
}

}  // namespace

std::string PendingContentPath(int domain_idx, const std::string& list_text) {
  return PATHS::DisclaimerContent(domain_idx) + "." + Fingerprint(list_text);
}

int SettlePendingContents(int domain_idx, Others others) {
  const std::string prefix = "domain-" + std::to_string(domain_idx) + ".";
  std::vector<std::string> names;
  if (!korvmailserver::ListFolder(PATHS::DisclaimerDir(), names)) {
    return -1;
  }
  int result = 0;
  for (const std::string& name : names) {
    if (name.compare(0, prefix.size(), prefix) == 0 &&
        Settle(domain_idx, PATHS::DisclaimerDir() + "/" + name, others) < 0) {
      result = -1;
    }
  }
  return result;
}

PendingContents::PendingContents(int domain_idx, const std::string& list_text)
    : domain_idx_(domain_idx), path_(PendingContentPath(domain_idx, list_text)) {}

PendingContents::~PendingContents() {
  if (lock_ >= 0) {
    close(lock_);
  }
}

// Between writing and holding somebody may take them for left; then they are written again.
int PendingContents::Write(const Json::Value& contents) {
  constexpr int kAttempts = 5;
  for (int attempt = 0; lock_ < 0 && attempt < kAttempts; ++attempt) {
    if (WriteContents(path_, contents) < 0) {
      return -1;
    }
    lock_ = Hold(path_, Others::kWait);
  }
  if (lock_ < 0) {
    LOG_ERROR("Failed to hold [%s], %m", path_.c_str());
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  return 0;
}

int PendingContents::Place() {
  if (rename(path_.c_str(), PATHS::DisclaimerContent(domain_idx_).c_str()) != 0) {
    LOG_ERROR("Failed to replace [%s], %m", PATHS::DisclaimerContent(domain_idx_).c_str());
    LOG_ERROR("fail to open disclaimer content file");
    return -1;
  }
  korvmailserver::SyncFolderOf(path_);
  close(lock_);
  lock_ = -1;
  return 0;
}

void PendingContents::Drop() {
  postara::sdk::Unlink(path_);
}

}  // namespace MDOMAIN::API::INTERNAL
