#include "lib-domain/api/export_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "lib-domain/base/text.h"
#include "platform/include/files.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

constexpr mode_t kMode = 0600;

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

// The descriptor that a path stands for, negative for any other path. These paths are links of the
// system's own.
int DescriptorOf(const std::string& path) {
  const std::string folder = "/dev/fd/";
  int fd = -1;
  if (path == "-" || path == "/dev/stdout") {
    return STDOUT_FILENO;
  }
  if (path.compare(0, folder.size(), folder) == 0) {
    BASE::ConvertToInt(path.substr(folder.size()), fd);
  }
  return fd;
}

bool TakesBytes(mode_t mode) {
  return S_ISFIFO(mode) || S_ISCHR(mode);
}

// Looks again at what was opened: it may have been changed since.
int WriteToDevice(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    return -1;
  }
  struct stat info {};
  int result = -1;
  if (fstat(fd, &info) == 0 && !TakesBytes(info.st_mode)) {
    errno = EINVAL;
  } else {
    result = WriteAll(fd, bytes);
  }
  const int error = errno;
  close(fd);
  errno = error;
  return result;
}

}  // namespace

int WriteExport(const std::string& path, const std::string& bytes) {
  const int fd = DescriptorOf(path);
  if (fd >= 0) {
    return WriteAll(fd, bytes);
  }
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) {
    return errno == ENOENT ? korvmailserver::ReplaceFile(path, bytes, kMode) : -1;
  }
  if (S_ISREG(info.st_mode)) {
    return korvmailserver::ReplaceFile(path, bytes, kMode);
  }
  if (TakesBytes(info.st_mode)) {
    return WriteToDevice(path, bytes);
  }
  errno = EINVAL;
  if (S_ISLNK(info.st_mode)) {
    errno = ELOOP;
  } else if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
  }
  return -1;
}

}  // namespace MDOMAIN::API::INTERNAL
