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
#include <cstring>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>

#include "platform/include/maillog.h"
#include "platform/include/new_file.h"
#include "platform/include/root_path.h"

namespace {

constexpr mode_t kFlagMode = 0644;
// For fewer flags each is looked at; for more their folder is, where its size tells that it has not
// many others.
constexpr size_t kFewFlags = 16;
constexpr size_t kBytesPerFlag = 64;
constexpr off_t kExpectedBytes = off_t{1} << 30;  // a sparse file can claim any size

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

// Puts a folder that is ready in its place; EEXIST when something is there.
int PlaceFolder(const std::string& ready, const std::string& path) {
  if (renameat2(AT_FDCWD, ready.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  // Not every file system knows the flag; without it only an empty folder can be replaced.
  return errno == EINVAL || errno == ENOSYS ? rename(ready.c_str(), path.c_str()) : -1;
}

// Makes one folder; one that is there already is success. It has owner and mode before it has its
// name: a process that is killed in between leaves nothing that the next would take for a good one.
int MakeFolder(const std::string& path, uid_t uid, gid_t gid, mode_t mode) {
  const size_t slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  korvmailserver::RemoveLeftovers(parent.empty() ? "." : parent);
  std::string ready = parent + korvmailserver::kNewFilePrefix + "XXXXXX";
  if (mkdtemp(ready.data()) == nullptr) {
    return -1;
  }
  if (lchown(ready.c_str(), uid, gid) == 0 && chmod(ready.c_str(), mode) == 0 &&
      PlaceFolder(ready, path) == 0) {
    return 0;
  }
  const int error = errno;
  rmdir(ready.c_str());
  if (IsFolder(path)) {  // another process was faster
    return 0;
  }
  errno = error == EEXIST ? ENOTDIR : error;
  return -1;
}

// The folder of a path, itself not reached through a link that its owner could have placed; the
// path's last part is set in `name`.
int OpenFolderOf(const std::string& path, std::string& name) {
  const size_t slash = path.rfind('/');
  const size_t end = slash == std::string::npos ? slash : path.find_last_not_of('/', slash);
  name = path.substr(slash == std::string::npos ? 0 : slash + 1);
  const std::string folder = slash == std::string::npos ? "."
                             : end == std::string::npos ? "/"
                                                        : path.substr(0, end + 1);
  return open(folder.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Where root and the service account both leave flags, the owner of the folder may not write to one
// that root made, and puts its own in the place of that.
int OpenFlag(int folder, const std::string& name) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int file = openat(folder, name.c_str(), kFlags, kFlagMode);
  struct stat info {};
  if (file >= 0 || errno != EACCES) {
    return file;
  }
  const bool is_flag = fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                       S_ISREG(info.st_mode) && info.st_size == 0;
  if (!is_flag || unlinkat(folder, name.c_str(), 0) != 0) {
    errno = EACCES;
    return -1;
  }
  return openat(folder, name.c_str(), kFlags, kFlagMode);
}

// Touches flags in one folder.
class FlagFolder {
 public:
  // `flags`: how many will be touched.
  explicit FlagFolder(int folder, size_t flags = 1) : folder_(folder) {
    struct stat status {};
    if (flags > kFewFlags && fstat(folder_, &status) == 0 &&
        static_cast<size_t>(status.st_size) <= flags * kBytesPerFlag) {
      _List();
    }
  }

  // 0, or -1 with errno.
  int Touch(const std::string& name) {
    if (files_.count(name) != 0 &&
        utimensat(folder_, name.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) == 0) {
      return 0;
    }
    // Where one was missing, the next may be, too; without opening it costs half.
    if (are_missing_ && mknodat(folder_, name.c_str(), S_IFREG | kFlagMode, 0) == 0) {
      return 0;
    }
    are_missing_ = false;
    // Most are there already; opening costs more than the rest.
    struct stat found {};
    const bool is_there = fstatat(folder_, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
    if (is_there && S_ISREG(found.st_mode) && (found.st_mode & kFlagMode) == kFlagMode &&
        utimensat(folder_, name.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) == 0) {
      return 0;
    }
    return _Open(name, is_there);
  }

 private:
  int _Open(const std::string& name, bool was_there) {
    const File file(OpenFlag(folder_, name));
    struct stat info {};
    if (file.get() < 0 || fstat(file.get(), &info) != 0 || futimens(file.get(), nullptr) != 0) {
      return -1;
    }
    // The consumer runs under another account: a strict umask must not hide the flag from it.
    const bool is_strict = info.st_uid == geteuid() && (info.st_mode & kFlagMode) != kFlagMode;
    are_missing_ = !was_there && !is_strict;
    return is_strict ? fchmod(file.get(), kFlagMode) : 0;
  }

  // The plain files. Whoever makes a flag gives it its mode at once.
  void _List() {
    const int opened = openat(folder_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opened < 0 ? nullptr : fdopendir(opened),
                                                      closedir);
    if (entries == nullptr && opened >= 0) {
      close(opened);
    }
    while (const dirent* entry = entries == nullptr ? nullptr : readdir(entries.get())) {
      if (entry->d_type == DT_REG) {
        files_.insert(entry->d_name);
      }
    }
  }

  int folder_;
  bool are_missing_ = false;
  std::unordered_set<std::string> files_;
};

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
  std::string name;
  const File folder(OpenFolderOf(path, name));
  return folder.get() < 0 ? -1 : FlagFolder(folder.get()).Touch(name);
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

namespace korvmailserver {

std::vector<std::string> TouchAll(const std::string& folder,
                                  const std::vector<std::string>& names) {
  std::string none;
  const File opened(OpenFolderOf(folder + "/", none));
  std::vector<std::string> failed;
  FlagFolder flags(opened.get(), names.size());
  for (const std::string& name : names) {
    if (opened.get() < 0 || flags.Touch(name) != 0) {
      failed.push_back(name);
    }
  }
  return failed;
}

}  // namespace korvmailserver

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

bool ListFolder(const std::string& path, std::vector<std::string>& names) {
  std::vector<std::string> found;
  if (postara::sdk::EnumDirectory(path, found) < 0 && errno != ENOENT) {
    maillog(kLogError, "Cannot read folder [%s]: %m", path.c_str());
    return false;
  }
  names = std::move(found);
  return true;
}

FolderResult MakeServiceFolder(const std::string& path, mode_t mode) {
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    return FolderResult::kNoAccount;
  }
  struct stat info {};
  if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode) && info.st_uid != 0) {
    errno = ELOOP;
    return FolderResult::kFailed;
  }
  std::string why;
  if (KORVFSMkdirP(path.c_str(), uid, gid, mode) < 0) {
    return FolderResult::kFailed;
  }
  if (!IsSafeFolder(path, why)) {
    maillog(kLogError, "Folder [%s] is not used: %s", path.c_str(), why.c_str());
    errno = EPERM;
    return FolderResult::kFailed;
  }
  return FolderResult::kDone;
}

int ReplaceFile(const std::string& path, const std::string& bytes, mode_t mode) {
  NewFile file(path);
  if (!file.Open()) {
    return -1;
  }
  file.TakeOwnerOfOld();
  return file.Append(bytes) && file.Replace(mode) ? 0 : -1;
}

void SyncFolderOf(const std::string& path) {
  if (OtherRoot::IsInForce()) {
    return;  // copies that nobody needs after a crash
  }
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
  struct stat info {};
  if (fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kExpectedBytes) {
    all.reserve(static_cast<size_t>(info.st_size));
  }
  char part[65536];
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
