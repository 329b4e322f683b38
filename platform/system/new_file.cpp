// Files on their way into place: made, filled, renamed, and swept when their maker was killed.
//
// The maker holds a lock on its file from the first moment to the last, and the system drops it
// however the maker ends. So a file of this name that nobody has locked is nobody's.
#include "platform/include/new_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/include/files.h"
#include "platform/include/root_path.h"
#include "platform/include/scope_guard.h"

namespace korvmailserver {

namespace {

constexpr std::string_view kJournal = "-journal";

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

// False with errno set when what stands at the path is no regular file.
bool MayReplace(const std::string& path) {
  struct stat old {};
  if (lstat(path.c_str(), &old) != 0) {
    return errno == ENOENT;
  }
  if (S_ISREG(old.st_mode)) {
    return true;
  }
  errno = S_ISDIR(old.st_mode) ? EISDIR : S_ISLNK(old.st_mode) ? ELOOP : ENOTSUP;
  return false;
}

// In one step: a second name that stays would be a second name of a database. Not every file system
// can. False with errno EEXIST when the name is taken.
bool MoveToFreeName(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if ((errno != EINVAL && errno != ENOSYS) || link(from.c_str(), to.c_str()) != 0) {
    return false;
  }
  unlink(from.c_str());
  return true;
}

// The journal of a database, which carries the lock for both, is left while there is one.
bool IsJournalInUse(const std::string& path) {
  if (path.size() < kJournal.size() ||
      path.compare(path.size() - kJournal.size(), kJournal.size(), kJournal) != 0) {
    return false;
  }
  return postara::sdk::Exist(path.substr(0, path.size() - kJournal.size()));
}

void RemoveLeftover(const std::string& path) {
  if (IsJournalInUse(path)) {
    return;
  }
  // A folder on its way is empty; its maker makes another one when it is gone.
  if (rmdir(path.c_str()) == 0 || errno != ENOTDIR) {
    return;
  }
  const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) {
    return;
  }
  const postara::ScopeGuard close_file([file] { close(file); });
  struct stat info {};
  if (fstat(file, &info) == 0 && S_ISREG(info.st_mode) && flock(file, LOCK_EX | LOCK_NB) == 0) {
    unlink(path.c_str());
  }
}

}  // namespace

NewFile::NewFile(const std::string& path) : path_(path) {}

NewFile::~NewFile() {
  if (file_ >= 0) {
    const int error = errno;
    unlink(beside_.c_str());
    _Close();
    errno = error;
  }
}

bool NewFile::Open() {
  return MayReplace(path_) && _OpenLocked();
}

// Between its making and its locking a sweep may take the file for a leftover; then another one is
// made.
bool NewFile::_OpenLocked() {
  struct stat made {};
  do {
    _Close();
    beside_ = FolderOf(path_) + kNewFilePrefix + "XXXXXX";
    file_ = mkostemp(beside_.data(), O_CLOEXEC);
    if (file_ < 0) {
      return false;
    }
    while (flock(file_, LOCK_EX) != 0 && errno == EINTR) {
    }
  } while (fstat(file_, &made) == 0 && made.st_nlink == 0);
  return true;
}

bool NewFile::Append(const std::string& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t count = write(file_, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno != EINTR) {
      return false;
    }
    done += count < 0 ? 0 : static_cast<size_t>(count);
  }
  return true;
}

bool NewFile::Clear() {
  return ftruncate(file_, 0) == 0 && lseek(file_, 0, SEEK_SET) == 0;
}

void NewFile::TakeOwnerOfOld() {
  struct stat old {};
  if (lstat(path_.c_str(), &old) == 0 && (old.st_uid != geteuid() || old.st_gid != getegid())) {
    const int ignored = fchown(file_, old.st_uid, old.st_gid);
    static_cast<void>(ignored);
  }
}

bool NewFile::SetOwner(uid_t uid, gid_t gid) {
  struct stat info {};
  return fstat(file_, &info) == 0 &&
         ((info.st_uid == uid && info.st_gid == gid) || fchown(file_, uid, gid) == 0);
}

bool NewFile::Replace(mode_t mode) {
  if (!_Finish(mode) || rename(beside_.c_str(), path_.c_str()) != 0) {
    return false;
  }
  _Close();
  SyncFolderOf(path_);
  return true;
}

bool NewFile::Create(mode_t mode) {
  if (!_Finish(mode) || !MoveToFreeName(beside_, path_)) {
    return false;
  }
  _Close();
  SyncFolderOf(path_);
  return true;
}

bool NewFile::_Finish(mode_t mode) {
  // Copies within another root are nothing that anybody needs after a crash.
  return fchmod(file_, mode) == 0 && (OtherRoot::IsInForce() || fsync(file_) == 0) &&
         MayReplace(path_);
}

void NewFile::_Close() {
  if (file_ >= 0) {
    close(std::exchange(file_, -1));
  }
}

void RemoveLeftovers(const std::string& folder) {
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(folder, names) < 0) {
    return;
  }
  for (const std::string& name : names) {  // a database before its journal
    if (name.rfind(kNewFilePrefix, 0) == 0) {
      RemoveLeftover(std::string(folder).append("/").append(name));
    }
  }
}

}  // namespace korvmailserver
