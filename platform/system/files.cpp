// Existence, times, folders, listing, whole-file reading and replacing.
//
// Callers give paths that carry the root prefix already. Owners are in owner.cpp.
#include "platform/include/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

namespace {

// Closes at the end of its scope without touching errno.
class File {
 public:
  explicit File(int fd) : fd_(fd) {}
  ~File() { Close(); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int get() const { return fd_; }
  int Close() {
    const int error = errno;
    const int result = fd_ < 0 ? 0 : close(std::exchange(fd_, -1));
    if (result == 0) {
      errno = error;
    }
    return result;
  }

 private:
  int fd_;
};

bool IsFolder(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Makes one folder; one that is there already is success. A folder whose owner or mode cannot be
// set is taken away again: left behind, the next call would take it for a good one.
int MakeFolder(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
  if (mkdir(path.c_str(), 0700) != 0) {
    const int error = errno;
    if (IsFolder(path)) {
      return 0;
    }
    errno = error == EEXIST ? ENOTDIR : error;
    return -1;
  }
  if (lchown(path.c_str(), uid, gid) == 0 && chmod(path.c_str(), mode) == 0) {
    return 0;
  }
  const int error = errno;
  rmdir(path.c_str());
  errno = error;
  return -1;
}

int WriteAll(int fd, const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno != EINTR) {
      return -1;
    }
    done += count < 0 ? 0 : static_cast<size_t>(count);
  }
  return 0;
}

// The new file's bytes, owner and mode, on disk. The owner of the file that it will replace is
// kept where the caller may do so; a caller who may not owns the new one.
int FillNew(int fd, const std::string& old_path, const std::string& bytes, mode_t mode) {
  struct stat old {};
  if (lstat(old_path.c_str(), &old) == 0 && (old.st_uid != geteuid() || old.st_gid != getegid())) {
    const int ignored = fchown(fd, old.st_uid, old.st_gid);
    static_cast<void>(ignored);
  }
  return WriteAll(fd, bytes) != 0 || fchmod(fd, mode) != 0 || fsync(fd) != 0 ? -1 : 0;
}

}  // namespace

bool KLIBCFileExist(const char* path) {
  return path != nullptr && postara::sdk::Exist(path);
}

int KLIBCFileTouch(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  // Not through a link: flag folders belong to accounts with fewer rights than the caller.
  const File file(
      open(path, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644));
  return file.get() < 0 || futimens(file.get(), nullptr) != 0 ? -1 : 0;
}

int KORVFSMkdirP(const char* path, uid_t uid, gid_t gid, mode_t mode) {
  if (path == nullptr || *path == '\0') {
    errno = ENOENT;
    return -1;
  }
  const std::string whole = path;
  size_t end = 0;
  while (end != std::string::npos) {
    end = whole.find('/', whole.find_first_not_of('/', end));
    const std::string folder = whole.substr(0, end);
    if (!IsFolder(folder) && MakeFolder(folder, uid, gid, mode) != 0) {
      return -1;
    }
  }
  return 0;
}

namespace postara {
namespace sdk {

bool Exist(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

int Unlink(const std::string& path) {
  return unlink(path.c_str());
}

int EnumDirectory(const std::string& path, std::vector<std::string>& names) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
  if (folder == nullptr) {
    return -1;
  }
  std::vector<std::string> found;
  errno = 0;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      found.push_back(name);
    }
    errno = 0;
  }
  if (errno != 0) {
    return -1;
  }
  std::sort(found.begin(), found.end());
  names = std::move(found);
  return 0;
}

}  // namespace sdk
}  // namespace postara

namespace korvmailserver {

FolderResult MakeServiceFolder(const std::string& path, mode_t mode) {
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    return FolderResult::kNoAccount;
  }
  return KORVFSMkdirP(path.c_str(), uid, gid, mode) < 0 ? FolderResult::kFailed
                                                        : FolderResult::kDone;
}

int ReplaceFile(const std::string& path, const std::string& bytes, mode_t mode) {
  std::string beside = path + ".XXXXXX";
  File file(mkostemp(beside.data(), O_CLOEXEC));
  if (file.get() < 0) {
    return -1;
  }
  if (FillNew(file.get(), path, bytes, mode) != 0 || file.Close() != 0 ||
      rename(beside.c_str(), path.c_str()) != 0) {
    const int error = errno;
    unlink(beside.c_str());
    errno = error;
    return -1;
  }
  SyncFolderOf(path);
  return 0;
}

void SyncFolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const File file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (file.get() >= 0) {
    fsync(file.get());
  }
}

int ReadFile(const std::string& path, std::string& bytes) {
  const File file(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
  if (file.get() < 0) {
    return -1;
  }
  std::string all;
  char part[16384];
  while (true) {
    const ssize_t count = read(file.get(), part, sizeof(part));
    if (count == 0) {
      bytes = std::move(all);
      return 0;
    }
    if (count < 0 && errno != EINTR) {
      return -1;
    }
    all.append(part, count < 0 ? 0 : static_cast<size_t>(count));
  }
}

}  // namespace korvmailserver
