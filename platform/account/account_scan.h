// Single accounts out of passwd and group, without a table of all of them.
//
// One pass over a file proves that it is in order: every line is whole, no name and no id stands
// there twice. It keeps some 20 bytes an entry, by which a later question finds the line that
// answers it, and reads that line again. Where an earlier process has left an index of these files
// (account_index.h), it answers questions about single accounts without a pass. Files that are not
// in order are left to the tables, which know what a gap hides; so here nothing is ever hidden.
#ifndef PLATFORM_ACCOUNT_ACCOUNT_SCAN_H
#define PLATFORM_ACCOUNT_ACCOUNT_SCAN_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/account/account_files.h"
#include "platform/account/account_index.h"
#include "platform/account/source.h"

namespace korvmailserver::account {

// Building the tables costs more than so many questions to a scan.
constexpr int kQuestionsToScan = 200;

enum class FileKind { kPasswd, kGroup };

// What is known of names: an account, or a row without a name where there is none.
using UsersByName = std::unordered_map<std::string, UserRow>;

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

class AccountScan {
 public:
  // False when the tables have to answer.
  bool Read(const std::string& passwd, const std::string& group, const IdRanges& ranges);

  // What the tables would answer, or kFailed: then ask them. `row` and `names` stay untouched
  // unless found.
  Outcome Find(const std::string& name, UserRow& row) const;
  Outcome Find(const std::string& name, GroupRow& row) const;
  Outcome FindById(unsigned int uid, UserRow& row) const;
  Outcome FindById(unsigned int gid, GroupRow& row) const;
  // The accounts among the members are added to `known`, too.
  Outcome ListMembers(const std::string& group, std::vector<std::string>& names,
                      UsersByName& known) const;
  // Adds what is known of these names. False: ask the tables.
  bool FindAll(const std::vector<std::string>& names, UsersByName& known) const;
  // Adds the users whom an enumeration hands out first under the folded names, which are in order.
  // False: ask the tables.
  bool FindFolded(const std::vector<std::string>& folded, std::vector<UserRow>& users) const;

 private:
  template <class Row>
  Outcome ReadRow(const FileScan& file, size_t entry, Row& row) const;
  template <class Row>
  Outcome FindIn(const FileScan& file, const std::string& name, Row& row) const;
  template <class Row>
  Outcome FindIdIn(const FileScan& file, unsigned int id, Row& row) const;
  template <class Row, class IsIt>
  Outcome FindIndexed(AccountIndex::Part part, uint64_t key, const IsIt& is_it, Row& row) const;
  bool OpenIndexed();
  bool Prove() const;

  IdRanges ranges_;
  std::array<std::string, 2> paths_;  // passwd, group
  // With an index, the files are read where it says, and as a whole only when need be.
  AccountIndex index_;
  std::array<FileStamp, 2> stamps_;
  std::array<FileHandle, 2> lines_;
  mutable FileScan users_{FileKind::kPasswd};
  mutable FileScan groups_{FileKind::kGroup};
  mutable std::optional<bool> is_proved_;
};

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_ACCOUNT_SCAN_H
