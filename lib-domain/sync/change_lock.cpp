// The lock is flock() on a file that stays. It ends with the process, however that ends, so an old
// file blocks nobody.
#include "lib-domain/sync/change_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"

namespace MDOMAIN::UTILS {

namespace {

using Clock = std::chrono::steady_clock;
using Result = ChangeLock::Result;

constexpr mode_t kMode = 0644;

Result MakeFolderOf(const std::string& path, std::string& error) {
  const std::string folder = path.substr(0, path.rfind('/'));
  uid_t uid = geteuid();
  gid_t gid = getegid();
  mailUGidGet(korvmailserver::kServiceAccount, &uid, &gid);
  if (!KLIBCFileExist(folder.c_str()) && KORVFSMkdirP(folder.c_str(), uid, gid, 0755) < 0) {
    error = "cannot make " + folder + ": " + std::strerror(errno);
    return Result::kNoRights;
  }
  std::string why;
  if (!korvmailserver::IsSafeFolder(folder, why)) {
    error = "cannot use " + folder + " for the lock file: " + why;
    return Result::kFailed;
  }
  return Result::kHeld;
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
bool IsOwnFile(int fd) {
  struct stat info {};
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink > 1) {
    return false;
  }
  // Where the umask is strict the service account could not open it.
  if (info.st_uid == geteuid() && (info.st_mode & 07777) != kMode) {
    fchmod(fd, kMode);
  }
  return true;
}

// The holder writes its process id into the file so that a waiting process can name it.
std::string Holder(int fd) {
  char text[32] = {};
  const ssize_t length = pread(fd, text, sizeof(text) - 1, 0);
  return length > 0 ? " (process " + std::string(text, static_cast<size_t>(length)) + ")" : "";
}

Result TryLock(int fd, const std::string& path, std::string& error) {
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
    return Result::kHeld;
  }
  if (errno == EWOULDBLOCK || errno == EINTR) {
    return Result::kBusy;
  }
  error = "cannot lock " + path + ": " + std::strerror(errno);
  return Result::kFailed;
}

}  // namespace

Result ChangeLock::Take(int timeout_seconds, const Waiting& waiting, std::string& error) {
  const std::string path = PATHS::LockFile();
  if (const Result result = MakeFolderOf(path, error); result != Result::kHeld) {
    return result;
  }
  fd_ = OpenLockFile(path);
  if (fd_ < 0) {
    error = "cannot open " + path + ": " + std::strerror(errno);
    return Result::kNoRights;
  }
  if (!IsOwnFile(fd_)) {
    close(fd_);
    fd_ = -1;
    error = "cannot use " + path + " as lock file: it is not a file of its own";
    return Result::kFailed;
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout_seconds);
  Result result = TryLock(fd_, path, error);
  if (result == Result::kBusy) {
    waiting(Holder(fd_));
  }
  while (result == Result::kBusy && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    result = TryLock(fd_, path, error);
  }
  if (result != Result::kHeld) {
    error = result == Result::kBusy ? Holder(fd_) : error;
    close(fd_);
    fd_ = -1;
    return result;
  }
  const std::string pid = std::to_string(getpid());
  if (ftruncate(fd_, 0) != 0 || pwrite(fd_, pid.data(), pid.size(), 0) < 0) {
    return result;  // the id is only for messages: the lock is held without it
  }
  return result;
}

ChangeLock::~ChangeLock() {
  if (fd_ < 0) {
    return;
  }
  // The id is only for messages: an old one that stays does no harm.
  [[maybe_unused]] const int ignored = ftruncate(fd_, 0);
  close(fd_);
}

}  // namespace MDOMAIN::UTILS
