// Where the lines of passwd and group stand, kept over processes.
//
// Proving that large files are in order costs many times what one account does. Whoever has proved
// it leaves where each name and id stands, with the state that the files were in; as long as they
// are in it, a line is read where it stands and nothing else. The index is a file that may be lost
// or removed at any time. One that somebody else might have written, or of files that are no longer
// the same, counts for nothing.
#ifndef PLATFORM_ACCOUNT_ACCOUNT_INDEX_H
#define PLATFORM_ACCOUNT_ACCOUNT_INDEX_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/account/file_handle.h"
#include "platform/system/file_stamp.h"

namespace korvmailserver::account {

// The entries of one proved file; no name and no id twice. Names by their hashes (name_hash.h).
struct ProvedFile {
  const FileStamp& stamp;  // taken before the file was read
  const std::vector<uint64_t>& hashes;
  const std::vector<unsigned int>& ids;
  const std::vector<uint32_t>& offsets;
};

class AccountIndex {
 public:
  // False unless there is an index of the files in these states, which only root, the service
  // account or the caller can have written.
  bool Open(const FileStamp& passwd, const FileStamp& group);
  bool IsOpen() const { return file_.IsOpen(); }

  enum Part { kUserNames, kUserIds, kGroupNames, kGroupIds };
  // Replaces `offsets` by where the lines stand that may have this name or id: none where no line
  // has it. False when the index cannot be read.
  bool Find(Part part, uint64_t key, std::vector<uint32_t>& offsets) const;

  // Leaves the index of these files where it is worth it: not of small ones, nor of such as changed
  // a moment ago, which will change again. Whether it can be kept is of no consequence.
  static void Keep(const ProvedFile& passwd, const ProvedFile& group);

 private:
  FileHandle file_;
  std::array<uint64_t, 4> counts_ = {};
};

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_ACCOUNT_INDEX_H
