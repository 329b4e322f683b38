// A file that grows under a hidden name beside the one that it will become.
#ifndef PLATFORM_NEW_FILE_H
#define PLATFORM_NEW_FILE_H

#include <sys/types.h>

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// How every file and folder on its way into place is called, six letters behind it.
constexpr char kNewFilePrefix[] = ".mdomain-new-";

// Failures are false with errno set. What was not put in place is removed at the end of the scope;
// what a killed process leaves is known by its name and by a lock that nobody holds any more
// (RemoveLeftovers), the journal of a database with it.
class MDOMAIN_EXPORT NewFile {
 public:
  explicit NewFile(const std::string& path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  // Makes the empty file, readable by the caller alone. EISDIR, ELOOP (a link) or ENOTSUP (a device
  // and the like) when something else than a regular file stands at the path: it is not replaced.
  bool Open();
  bool IsOpen() const { return file_ >= 0; }
  bool Append(const std::string& bytes);
  // Back to an empty file.
  bool Clear();
  // The owner of the file that it will replace, where there is one and the caller may give files
  // away; no failure otherwise.
  void TakeOwnerOfOld();
  bool SetOwner(uid_t uid, gid_t gid);
  // The last two steps: the mode, whatever the umask, and the bytes on disk; then its place.
  // Replace takes an old file's place; Create fails with EEXIST when anything is there.
  bool Replace(mode_t mode);
  bool Create(mode_t mode);

  // The hidden name: where SQLite, say, fills the file.
  const std::string& Beside() const { return beside_; }

 private:
  bool _OpenLocked();
  bool _Finish(mode_t mode);
  void _Close();

  const std::string path_;
  std::string beside_;
  int file_ = -1;
};

}  // namespace korvmailserver

#endif  // PLATFORM_NEW_FILE_H
