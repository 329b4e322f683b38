// Single accounts out of passwd and group, without a table of all of them.
//
// A pass over each file (file_scan.h) proves that it is in order. Where an earlier process has left
// an index of these files (account_index.h), it answers questions about single accounts without a
// pass. Files that are not in order are left to the tables, which know what a gap hides; so here
// nothing is ever hidden.
#ifndef PLATFORM_ACCOUNT_ACCOUNT_SCAN_H
#define PLATFORM_ACCOUNT_ACCOUNT_SCAN_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/account/account_files.h"
#include "platform/account/account_index.h"
#include "platform/account/file_scan.h"
#include "platform/account/source.h"

namespace korvmailserver::account {

// Building the tables costs more than so many questions to a scan.
constexpr int kQuestionsToScan = 200;

// What is known of names: an account, or a row without a name where there is none.
using UsersByName = std::unordered_map<std::string, UserRow>;

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
  // Of a group that was found. The accounts among the members are added to `known`, too.
  Outcome ListMembers(const GroupRow& group, std::vector<std::string>& names,
                      UsersByName& known) const;
  // Adds what is known of these names. False: ask the tables.
  bool FindAll(const std::vector<std::string>& names, UsersByName& known) const;
  // Adds the users whom an enumeration hands out first under the folded names, which are in order.
  // Who is known is not read again. False: ask the tables.
  bool FindFolded(const std::vector<std::string>& folded, const UsersByName& known,
                  std::vector<UserRow>& users) const;

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
