// Tells whether a file is still the one that was read.
#ifndef PLATFORM_SYSTEM_FILE_STAMP_H
#define PLATFORM_SYSTEM_FILE_STAMP_H

#include <sys/stat.h>

#include <string>

namespace korvmailserver {

struct FileStamp {
  std::string path;
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified = {};
  timespec changed = {};
  double age = 0;  // seconds since it changed, when the stamp was taken
  // The file had not changed just before. A file's times advance in steps of some
  // milliseconds: a second change within one step would otherwise not show.
  bool settled = false;

  // Take it before reading: a change during the reading then shows the next time.
  static FileStamp Of(const std::string& path);
  // True when `path` is the file of this stamp, unchanged since.
  bool Holds(const std::string& path_now) const;
  // Whether this is the state of the file that is open.
  bool IsOf(const struct stat& info) const;
  // The stamp as a text that only this state of this file has, to be kept over processes; empty
  // when it tells nothing: no file, or one that has just changed.
  std::string Text() const;
};

}  // namespace korvmailserver

#endif  // PLATFORM_SYSTEM_FILE_STAMP_H
