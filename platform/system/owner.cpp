// The service account's ids and the owner and mode of its files.
//
// Below a root prefix the accounts are those of its etc/passwd, if it has one, else the machine's.
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/include/root_path.h"

namespace {

using korvmailserver::kLogError;

// The entry of `name`, valid until the next look-up; null when there is none.
const passwd* FindAccount(const char* name) {
  const std::string root = korvmailserver::RootPrefix();
  const std::string path = root + "/etc/passwd";
  if (root.empty() || !postara::sdk::Exist(path)) {
    return getpwnam(name);
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
  const passwd* entry = nullptr;
  do {
    entry = file == nullptr ? nullptr : fgetpwent(file.get());
  } while (entry != nullptr && std::string(entry->pw_name) != name);
  return entry;
}

// Never through a link: the service account can put one into its own folder, and the caller is
// root. The descriptor is one without access to the contents, because closing an ordinary one would
// drop the locks that SQLite holds on the same file in this process.
int SetOwnerAndMode(const char* path, uid_t uid, gid_t gid, mode_t mode) {
  const int fd = open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    return -1;
  }
  struct stat info {};
  int result = fstat(fd, &info);
  if (result == 0 && S_ISLNK(info.st_mode)) {
    errno = ELOOP;
    result = -1;
  }
  if (result == 0 && (info.st_uid != uid || info.st_gid != gid)) {
    result = fchownat(fd, "", uid, gid, AT_EMPTY_PATH);
  }
  if (result == 0) {
    result = chmod(("/proc/self/fd/" + std::to_string(fd)).c_str(), mode);
    if (result != 0 && errno == ENOENT) {  // a bare chroot without /proc
      result = chmod(path, mode);
    }
  }
  const int error = errno;
  close(fd);
  errno = error;
  return result;
}

}  // namespace

int mailUGidGet(const char* owner, uid_t* uid, gid_t* gid) {
  if (owner == nullptr || uid == nullptr || gid == nullptr) {
    return -1;
  }
  const bool trial = !korvmailserver::RootPrefix().empty();
  const passwd* account = trial && geteuid() != 0 ? nullptr : FindAccount(owner);
  if (account == nullptr && !trial) {
    return -1;
  }
  *uid = account == nullptr ? geteuid() : account->pw_uid;
  *gid = account == nullptr ? getegid() : account->pw_gid;
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
  if (SetOwnerAndMode(path, uid, gid, mode) != 0) {
    maillog(kLogError, "Cannot set the owner of [%s] to [%s] and its mode to %04o: %m", path, owner,
            mode);
    return -1;
  }
  return 0;
}
