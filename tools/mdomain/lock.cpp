// The lock is flock() on a file that stays. It ends with the process, however that ends, so an old
// file blocks nobody.
#include "tools/mdomain/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <thread>

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using Clock = std::chrono::steady_clock;

void MakeFolderOf(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  if (KLIBCFileExist(folder.c_str())) {
    return;
  }
  uid_t uid = geteuid();
  gid_t gid = getegid();
  mailUGidGet("Postara-Server", &uid, &gid);
  if (KORVFSMkdirP(folder.c_str(), uid, gid, 0755) < 0) {
    throw Failure(kFailed, "cannot make " + folder + ": " + std::strerror(errno));
  }
}

// A lock needs no right to write: the service account can lock a file that root made.
int OpenLockFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd >= 0 || errno != EACCES) {
    return fd;
  }
  return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
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

ChangeLock::ChangeLock(int timeout_seconds) {
  const std::string path = MDOMAIN::PATHS::LockFile();
  MakeFolderOf(path);
  fd_ = OpenLockFile(path);
  if (fd_ < 0) {
    throw Failure(kFailed, "cannot open " + path + ": " + std::strerror(errno));
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout_seconds);
  bool said = false;
  while (!TryLock(fd_, path)) {
    if (Clock::now() >= deadline) {
      const std::string holder = Holder(fd_);
      close(fd_);
      throw Failure(kFailed, "another mdomain" + holder + " is still at work after " +
                                 std::to_string(timeout_seconds) +
                                 " seconds, nothing was changed (--lock-timeout)");
    }
    if (!said) {
      std::cerr << "mdomain: waiting for another mdomain" << Holder(fd_) << " to finish\n";
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
