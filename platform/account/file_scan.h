// One pass over passwd or group, which proves that the file is in order: every line is whole, no
// name and no id stands there twice. It keeps some 20 bytes an entry, by which a later question
// finds the line that answers it, and reads that line again.
#ifndef PLATFORM_ACCOUNT_FILE_SCAN_H
#define PLATFORM_ACCOUNT_FILE_SCAN_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/account/account_index.h"
#include "platform/account/file_handle.h"
#include "platform/system/file_stamp.h"

namespace korvmailserver::account {

enum class FileKind { kPasswd, kGroup };

// The entries of one file in order, by number.
class FileScan {
 public:
  static constexpr size_t kNone = SIZE_MAX;

  explicit FileScan(FileKind kind) : kind_(kind) {}

  // False when the file cannot be read or is not in order; then there is nothing to ask.
  bool Read(const std::string& path);
  ProvedFile Proved() const { return {stamp_, hashes_, ids_, offsets_}; }

  // Entries that may have these names, one for each: kNone, or the only entry that can have it.
  std::vector<size_t> FindNames(const std::vector<std::string>& names) const;
  // kNone when no entry has the id.
  size_t FindId(unsigned int id) const;
  // Users whose primary group it is, in the order of the file.
  std::vector<size_t> OfGroup(unsigned int gid) const;
  // Those whose names letter case may change, in order.
  const std::vector<uint32_t>& Unfolded() const { return unfolded_; }
  // Whether an id lies between these.
  bool HasIdWithin(unsigned int lowest, unsigned int highest) const;
  // Whether the entry has, or may have, this name and id.
  bool Fits(size_t entry, const std::string& name, unsigned int id) const;
  // The entry's line without its end, valid until the next call. False when it can no longer be
  // read.
  bool ReadLine(size_t entry, std::string_view& line) const;

 private:
  class Block;
  bool ReadBlocks(off_t size);
  // Takes the whole lines of a block; false when one of them is not in order.
  bool TakeLines(Block& block);
  bool TakeLine(const Block& block, size_t begin, size_t end, const uint32_t* colons, size_t count);
  bool TakeOddLine(const Block& block, size_t begin, size_t end);
  void Add(std::string_view name, unsigned int id, unsigned int gid, size_t offset);

  const FileKind kind_;
  FileHandle file_;
  FileStamp stamp_;
  std::vector<uint64_t> hashes_;  // of the names
  std::vector<unsigned int> ids_;
  std::vector<unsigned int> gids_;  // primary groups
  std::vector<uint32_t> offsets_;   // of the lines
  std::vector<uint32_t> unfolded_;
};

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_FILE_SCAN_H
