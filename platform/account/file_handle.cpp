#include "platform/account/file_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace korvmailserver::account {

namespace {

constexpr size_t kWindowBytes = 4096;

}  // namespace

bool FileHandle::Open(const std::string& path, struct stat& info, int more_flags) {
  Close();
  file_ = open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC | O_NONBLOCK | more_flags);
  if (IsOpen() && (fstat(file_, &info) != 0 || !S_ISREG(info.st_mode))) {
    Close();
  }
  return IsOpen();
}

void FileHandle::Close() {
  if (IsOpen()) {
    close(file_);
  }
  file_ = -1;
  window_.clear();
}

ssize_t FileHandle::Read(void* bytes, size_t size, size_t offset) const {
  ssize_t count = -1;
  do {
    count = pread(file_, bytes, size, static_cast<off_t>(offset));
  } while (count < 0 && errno == EINTR);
  return count;
}

bool FileHandle::ReadLine(size_t offset, std::string_view& line) const {
  const auto is_in_window = [&] {
    if (offset < window_begin_ || offset - window_begin_ >= window_.size()) {
      return false;
    }
    const size_t at = offset - window_begin_;
    const size_t end = window_.find('\n', at);
    line = std::string_view(window_).substr(at, end == std::string::npos ? 0 : end - at);
    return end != std::string::npos;
  };
  for (size_t size = kWindowBytes; !is_in_window(); size *= 2) {
    window_.resize(size);
    window_begin_ = offset;
    const ssize_t count = Read(window_.data(), size, offset);
    window_.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    if (window_.size() < size && window_.find('\n') == std::string::npos) {
      return false;
    }
  }
  return true;
}

}  // namespace korvmailserver::account
