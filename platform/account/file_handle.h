// An open file that is read in pieces.
#ifndef PLATFORM_ACCOUNT_FILE_HANDLE_H
#define PLATFORM_ACCOUNT_FILE_HANDLE_H

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace korvmailserver::account {

class FileHandle {
 public:
  FileHandle() = default;
  ~FileHandle() { Close(); }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;

  // False unless it is a regular file that can be read.
  bool Open(const std::string& path, struct stat& info, int more_flags = 0);
  bool IsOpen() const { return file_ >= 0; }
  void Close();

  // As pread, begun again where a signal ended it.
  ssize_t Read(void* bytes, size_t size, size_t offset) const;
  // The line that begins at `offset`, without its end; valid until the next call. False when it
  // cannot be read or does not end.
  bool ReadLine(size_t offset, std::string_view& line) const;

 private:
  int file_ = -1;
  // What was read last: lines that are asked for together mostly stand together.
  mutable std::string window_;
  mutable size_t window_begin_ = 0;
};

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_FILE_HANDLE_H
