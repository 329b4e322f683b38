// The lock is flock() on a file that stays. It ends with the process, however that ends, so an old
// file blocks nobody.
#include "tools/mdomain/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <thread>

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using Clock = std::chrono::steady_clock;

constexpr mode_t kMode = 0644;

void MakeFolderOf(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  uid_t uid = geteuid();
  gid_t gid = getegid();
  mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid);
  if (!KLIBCFileExist(folder.c_str()) && KORVFSMkdirP(folder.c_str(), uid, gid, 0755) < 0) {
    throw CannotLock(kFailed, "cannot make " + folder + ": " + std::strerror(errno));
  }
  std::string why;
  if (!korvmailserver::IsSafeFolder(folder, why)) {
    throw Failure(kFailed, "cannot use " + folder + " for the lock file: " + why);
  }
}

// A lock needs no right to write: the service account can lock a file that root made.
int OpenLockFile(const std::string& path) {
  constexpr int kFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | kFlags, kMode);
  if (fd >= 0 || errno != EACCES) {
    return fd;
  }
  const int readable = open(path.c_str(), O_RDONLY | kFlags);
  if (readable < 0 && errno == ENOENT) {
    errno = EACCES;  // it could not be made
  }
  return readable;
}

// The process id is written into this file, so it must be one that is nothing else besides.
void RequireOwnFile(int fd, const std::string& path) {
  struct stat info {};
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink > 1) {
    close(fd);
    throw Failure(kFailed, "cannot use " + path + " as lock file: it is not a file of its own");
  }
  // Where the umask is strict the service account could not open it.
  if (info.st_uid == geteuid() && (info.st_mode & 07777) != kMode) {
    fchmod(fd, kMode);
  }
}

// The holder writes its process id into the file so that a waiting process can name it.
std::string Holder(int fd) {
  char text[32] = {};
  const ssize_t length = pread(fd, text, sizeof(text) - 1, 0);
  return length > 0 ? " (process " + std::string(text, static_cast<size_t>(length)) + ")" : "";
}

bool TryLock(int fd, const std::string& path) {
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
    return true;
  }
  if (errno != EWOULDBLOCK && errno != EINTR) {
    throw Failure(kFailed, "cannot lock " + path + ": " + std::strerror(errno));
  }
  return false;
}

}  // namespace

ChangeLock::ChangeLock(int timeout_seconds, bool quiet) {
  const std::string path = MDOMAIN::PATHS::LockFile();
  MakeFolderOf(path);
  fd_ = OpenLockFile(path);
  if (fd_ < 0) {
    throw CannotLock(kFailed, "cannot open " + path + ": " + std::strerror(errno));
  }
  RequireOwnFile(fd_, path);
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout_seconds);
  bool said = quiet;
  while (!TryLock(fd_, path)) {
    if (Clock::now() >= deadline) {
      const std::string holder = Holder(fd_);
      close(fd_);
      throw Failure(kFailed,
                    "another mdomain" + holder + " is still at work after " +
                        std::to_string(timeout_seconds) + " seconds, nothing was changed",
                    "try again, or wait longer with --lock-timeout SECONDS");
    }
    if (!said) {
      Note("waiting for another mdomain" + Holder(fd_) + " to finish");
      said = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  const std::string pid = std::to_string(getpid());
  if (ftruncate(fd_, 0) != 0 || pwrite(fd_, pid.data(), pid.size(), 0) < 0) {
    return;  // the id is only for messages: the lock is held without it
  }
}

ChangeLock::~ChangeLock() {
  // The id is only for messages: an old one that stays does no harm.
  [[maybe_unused]] const int ignored = ftruncate(fd_, 0);
  close(fd_);
}

}  // namespace mdomain
