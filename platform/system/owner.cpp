// The service account's ids and the owner and mode of its files.
//
// Below a root prefix the accounts are those of its etc/passwd, if it has one, else the machine's.
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"
#include "platform/system/file_stamp.h"

namespace {

using korvmailserver::kLogError;

struct Ids {
  uid_t uid;
  gid_t gid;
};

// The ids that a line of a passwd file gives to a name, as the C library reads it.
std::optional<Ids> IdsIn(std::string line, const std::string& name) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fmemopen(line.data(), line.size(), "r"), fclose);
  const passwd* entry = file == nullptr ? nullptr : fgetpwent(file.get());
  const bool is_it = entry != nullptr && entry->pw_name == name;
  return is_it ? std::optional<Ids>({entry->pw_uid, entry->pw_gid}) : std::nullopt;
}

// The first entry of the name in these lines.
std::optional<Ids> FindInLines(std::string_view lines, const std::string& name) {
  const std::string wanted = name + ":";
  for (size_t at = lines.find(wanted); at != lines.npos; at = lines.find(wanted, at + 1)) {
    const size_t before = at == 0 ? lines.npos : lines.find_last_not_of(" \t", at - 1);
    if (before != lines.npos && lines[before] != '\n') {
      continue;
    }
    const std::string_view line = lines.substr(at, lines.find('\n', at) - at);
    if (const std::optional<Ids> ids = IdsIn(std::string(line), name)) {
      return ids;
    }
  }
  return std::nullopt;
}

// Block by block: the C library reads a million lines in the better part of a second.
std::optional<Ids> FindIn(const std::string& path, const std::string& name) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
  std::optional<Ids> found;
  std::string lines;
  std::array<char, 65536> block{};
  size_t count = 1;
  while (file != nullptr && !found && count > 0) {
    count = fread(block.data(), 1, block.size(), file.get());
    lines.append(block.data(), count);
    const size_t end = count == 0 ? lines.size() : lines.rfind('\n') + 1;
    found = FindInLines(std::string_view(lines).substr(0, end), name);
    lines.erase(0, end);
  }
  return found;
}

// What a file said of the name that was looked up last: every opening of a database asks.
std::optional<Ids> FindOnce(const std::string& path, const std::string& name) {
  static auto& stamp = *new korvmailserver::FileStamp();
  static auto& known_name = *new std::string();
  static std::optional<Ids> known;
  if (name != known_name || !stamp.Holds(path)) {
    stamp = korvmailserver::FileStamp::Of(path);
    known_name = name;
    known = FindIn(path, name);
  }
  return known;
}

// The file first: a name service that hangs would hold up whoever opens a database.
std::optional<Ids> FindAccount(const char* name) {
  const std::string root = korvmailserver::RootPrefix();
  const bool has_own = !root.empty() && postara::sdk::Exist(root + "/etc/passwd");
  const std::optional<Ids> found = FindOnce((has_own ? root : "") + "/etc/passwd", name);
  if (found || !root.empty()) {
    return found;
  }
  const passwd* entry = getpwnam(name);
  return entry == nullptr ? std::nullopt : std::optional<Ids>({entry->pw_uid, entry->pw_gid});
}

// A file without access to its contents, because closing an ordinary descriptor would drop the
// locks that SQLite holds on the same file in this process. Never through a link: the service
// account can put one into its own folder, and the caller is root.
class FileHandle {
 public:
  explicit FileHandle(const char* path)
      : path_(path), fd_(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC)) {}
  ~FileHandle() {
    const int error = errno;
    if (fd_ >= 0) {
      close(fd_);
    }
    errno = error;
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;

  // False with errno set, for a link too.
  bool Read(struct stat& info) const {
    if (fd_ < 0 || fstat(fd_, &info) != 0) {
      return false;
    }
    errno = ELOOP;
    return !S_ISLNK(info.st_mode);
  }
  bool SetOwner(uid_t uid, gid_t gid) const {
    return fchownat(fd_, "", uid, gid, AT_EMPTY_PATH) == 0;
  }
  bool SetMode(mode_t mode) const {
    const bool done = chmod(("/proc/self/fd/" + std::to_string(fd_)).c_str(), mode) == 0;
    return done || (errno == ENOENT && chmod(path_, mode) == 0);  // a bare chroot without /proc
  }

 private:
  const char* path_;
  int fd_;
};

bool SetOwnerAndMode(const char* path, uid_t uid, gid_t gid, mode_t mode) {
  const FileHandle file(path);
  struct stat info {};
  return file.Read(info) &&
         ((info.st_uid == uid && info.st_gid == gid) || file.SetOwner(uid, gid)) &&
         file.SetMode(mode);
}

bool IsTrusted(uid_t owner) {
  if (owner == 0 || owner == geteuid()) {
    return true;
  }
  const std::optional<Ids> service = FindAccount(korvmailserver::kServiceAccount);
  if (service && service->uid == owner) {
    return true;
  }
  const std::string root = korvmailserver::RootPrefix();
  struct stat info {};
  return !root.empty() && stat(root.c_str(), &info) == 0 && info.st_uid == owner;
}

}  // namespace

int mailUGidGet(const char* owner, uid_t* uid, gid_t* gid) {
  if (owner == nullptr || uid == nullptr || gid == nullptr) {
    return -1;
  }
  const bool trial = !korvmailserver::RootPrefix().empty();
  const std::optional<Ids> account = trial && geteuid() != 0 ? std::nullopt : FindAccount(owner);
  if (!account && !trial) {
    return -1;
  }
  *uid = account ? account->uid : geteuid();
  *gid = account ? account->gid : getegid();
  return 0;
}

int mailFileOwnerModeSet(const char* path, const char* owner, unsigned mode) {
  if (path == nullptr || owner == nullptr) {
    maillog(kLogError, "Cannot set the owner of a file: no path or no owner given");
    return -1;
  }
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet(owner, &uid, &gid) < 0) {
    maillog(kLogError, "Cannot set the owner of [%s]: there is no account [%s]", path, owner);
    return -1;
  }
  if (!SetOwnerAndMode(path, uid, gid, mode)) {
    maillog(kLogError, "Cannot set the owner of [%s] to [%s] and its mode to %04o: %m", path, owner,
            mode);
    return -1;
  }
  return 0;
}

namespace korvmailserver {

bool IsSafeFolder(const std::string& folder, std::string& why) {
  struct stat info {};
  if (stat(folder.c_str(), &info) != 0) {
    return true;
  }
  if (!IsTrusted(info.st_uid)) {
    why = "the folder belongs to account number " + std::to_string(info.st_uid);
    return false;
  }
  if ((info.st_mode & S_IWOTH) != 0 && (info.st_mode & S_ISVTX) == 0) {
    why = "everybody may write to the folder";
    return false;
  }
  return true;
}

void MendServiceFile(const std::string& path, mode_t mode) {
  const FileHandle file(path.c_str());
  struct stat info {};
  uid_t uid = 0;
  gid_t gid = 0;
  if (!file.Read(info) || !S_ISREG(info.st_mode) || mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    return;
  }
  if (geteuid() == 0 && info.st_uid != uid) {
    file.SetOwner(uid, gid);
  }
  const bool unfinished = info.st_size == 0 && (info.st_mode & 07777) != mode;
  const bool open_to_others = (info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  if ((geteuid() == 0 || info.st_uid == geteuid()) && (unfinished || open_to_others)) {
    file.SetMode(mode);
  }
}

}  // namespace korvmailserver
