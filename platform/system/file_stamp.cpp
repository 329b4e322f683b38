#include "platform/system/file_stamp.h"

#include <ctime>

namespace korvmailserver {

namespace {

constexpr double kSettledAfterSeconds = 0.05;

double Seconds(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

bool Same(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

FileStamp FileStamp::Of(const std::string& path) {
  FileStamp stamp;
  stamp.path = path;
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  struct stat info = {};
  if (stat(path.c_str(), &info) != 0) {
    stamp.settled = true;  // coming into being changes `exists`
    return stamp;
  }
  stamp.exists = true;
  stamp.device = info.st_dev;
  stamp.inode = info.st_ino;
  stamp.size = info.st_size;
  stamp.modified = info.st_mtim;
  stamp.changed = info.st_ctim;
  stamp.age = Seconds(now) - Seconds(info.st_ctim);
  stamp.settled = stamp.age > kSettledAfterSeconds;
  return stamp;
}

bool FileStamp::IsOf(const struct stat& info) const {
  return exists && device == info.st_dev && inode == info.st_ino && size == info.st_size &&
         Same(modified, info.st_mtim) && Same(changed, info.st_ctim);
}

bool FileStamp::Holds(const std::string& path_now) const {
  if (!settled || path != path_now) {
    return false;
  }
  const FileStamp now = Of(path_now);
  return exists == now.exists && device == now.device && inode == now.inode && size == now.size &&
         Same(modified, now.modified) && Same(changed, now.changed);
}

std::string FileStamp::Text() const {
  if (!exists || !settled) {
    return "";
  }
  std::string text;
  for (const auto number :
       {static_cast<long long>(device), static_cast<long long>(inode), static_cast<long long>(size),
        static_cast<long long>(modified.tv_sec), static_cast<long long>(modified.tv_nsec),
        static_cast<long long>(changed.tv_sec), static_cast<long long>(changed.tv_nsec)}) {
    text += std::to_string(number) + " ";
  }
  return text;
}

}  // namespace korvmailserver
