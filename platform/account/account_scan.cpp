#include "platform/account/account_scan.h"

#include <algorithm>
#include <type_traits>
#include <unordered_set>

#include "platform/account/account_field.h"
#include "platform/account/name_hash.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

namespace {

constexpr size_t kMostMembers = 4096;  // above it the tables are faster

bool ReadLineOf(std::string_view line, const IdRanges& ranges, UserRow& row) {
  return ReadUserLine(line, ranges, row);
}

bool ReadLineOf(std::string_view line, const IdRanges& ranges, GroupRow& row) {
  bool all_members = false;
  return ReadGroupLine(line, ranges, row, all_members);
}

}  // namespace

bool AccountScan::Read(const std::string& passwd, const std::string& group,
                       const IdRanges& ranges) {
  ranges_ = ranges;
  paths_ = {passwd, group};
  return OpenIndexed() || Prove();
}

bool AccountScan::OpenIndexed() {
  for (size_t i = 0; i < paths_.size(); i++) {
    struct stat info = {};
    stamps_[i] = FileStamp::Of(paths_[i]);
    if (!lines_[i].Open(paths_[i], info) || !stamps_[i].IsOf(info)) {
      return false;
    }
  }
  return index_.Open(stamps_[0], stamps_[1]);
}

// Whether the files themselves are read, and in order; with an index not before one of its
// questions cannot be answered by it.
bool AccountScan::Prove() const {
  if (!is_proved_.has_value()) {
    is_proved_ = users_.Read(paths_[0]) && groups_.Read(paths_[1]);
    if (*is_proved_ && !index_.IsOpen()) {
      AccountIndex::Keep(users_.Proved(), groups_.Proved());
    }
    if (*is_proved_ && index_.IsOpen()) {
      is_proved_ = stamps_[0].Holds(paths_[0]) && stamps_[1].Holds(paths_[1]);
    }
  }
  return *is_proved_;
}

template <class Row>
Outcome AccountScan::ReadRow(const FileScan& file, size_t entry, Row& row) const {
  std::string_view line;
  Row read;
  if (!file.ReadLine(entry, line) || !ReadLineOf(WithoutCarriageReturn(line), ranges_, read) ||
      !file.Fits(entry, read.name, IdOf(read))) {
    return Outcome::kFailed;
  }
  row = std::move(read);
  return Outcome::kFound;
}

// A line that is another than the index says only has a name with the same key. No line is believed
// before the file still is the same behind it: one that is written in place shows half of either
// state.
template <class Row, class IsIt>
Outcome AccountScan::FindIndexed(AccountIndex::Part part, uint64_t key, const IsIt& is_it,
                                 Row& row) const {
  const size_t file = part < AccountIndex::kGroupNames ? 0 : 1;
  std::vector<uint32_t> offsets;
  if (!index_.Find(part, key, offsets)) {
    return Outcome::kFailed;
  }
  Row read;
  bool is_found = false;
  for (auto offset = offsets.begin(); offset != offsets.end() && !is_found; ++offset) {
    std::string_view line;
    read = Row();
    if (!lines_[file].ReadLine(*offset, line) ||
        !ReadLineOf(WithoutCarriageReturn(line), ranges_, read)) {
      return Outcome::kFailed;
    }
    is_found = is_it(read);
  }
  if (!offsets.empty() && !stamps_[file].Holds(paths_[file])) {
    return Outcome::kFailed;
  }
  if (!is_found) {
    return Outcome::kUnknown;
  }
  row = std::move(read);
  return Outcome::kFound;
}

template <class Row>
Outcome AccountScan::FindIn(const FileScan& file, const std::string& name, Row& row) const {
  if (index_.IsOpen()) {
    return FindIndexed(
        std::is_same_v<Row, UserRow> ? AccountIndex::kUserNames : AccountIndex::kGroupNames,
        HashOf(name), [&](const Row& read) { return read.name == name; }, row);
  }
  const size_t entry = file.FindNames({name}).front();
  Row found;
  if (entry == FileScan::kNone) {
    return Outcome::kUnknown;
  }
  if (ReadRow(file, entry, found) == Outcome::kFailed) {
    return Outcome::kFailed;
  }
  if (found.name != name) {
    return Outcome::kUnknown;
  }
  row = std::move(found);
  return Outcome::kFound;
}

template <class Row>
Outcome AccountScan::FindIdIn(const FileScan& file, unsigned int id, Row& row) const {
  if (index_.IsOpen()) {
    return FindIndexed(
        std::is_same_v<Row, UserRow> ? AccountIndex::kUserIds : AccountIndex::kGroupIds, id,
        [&](const Row& read) { return IdOf(read) == id; }, row);
  }
  const size_t entry = file.FindId(id);
  return entry == FileScan::kNone ? Outcome::kUnknown : ReadRow(file, entry, row);
}

Outcome AccountScan::Find(const std::string& name, UserRow& row) const {
  return FindIn(users_, name, row);
}

Outcome AccountScan::Find(const std::string& name, GroupRow& row) const {
  return FindIn(groups_, name, row);
}

Outcome AccountScan::FindById(unsigned int uid, UserRow& row) const {
  return FindIdIn(users_, uid, row);
}

Outcome AccountScan::FindById(unsigned int gid, GroupRow& row) const {
  return FindIdIn(groups_, gid, row);
}

bool AccountScan::FindAll(const std::vector<std::string>& names, UsersByName& known) const {
  if (index_.IsOpen()) {
    for (const std::string& name : names) {
      UserRow user;
      if (Find(name, user) == Outcome::kFailed) {
        return false;
      }
      known[name] = std::move(user);
    }
    return true;
  }
  const std::vector<size_t> entries = users_.FindNames(names);
  for (size_t i = 0; i < names.size(); i++) {
    UserRow user;
    if (entries[i] != FileScan::kNone && ReadRow(users_, entries[i], user) == Outcome::kFailed) {
      return false;
    }
    known[names[i]] = user.name == names[i] ? std::move(user) : UserRow();
  }
  return true;
}

Outcome AccountScan::ListMembers(const GroupRow& group, std::vector<std::string>& names,
                                 UsersByName& known) const {
  if (!Prove()) {
    return Outcome::kFailed;
  }
  const std::vector<size_t> primary = users_.OfGroup(group.gid);
  if (group.members.size() + primary.size() > kMostMembers || !FindAll(group.members, known)) {
    return Outcome::kFailed;
  }
  std::vector<std::string> members;
  std::unordered_set<std::string> seen;
  const auto append = [&](const std::string& name) {
    if (seen.insert(name).second) {
      members.push_back(name);
    }
  };
  for (const std::string& name : group.members) {
    const UserRow& user = known.at(name);
    if (user.name.empty() || user.listed) {
      append(name);
    }
  }
  for (const size_t entry : primary) {
    UserRow user;
    if (ReadRow(users_, entry, user) == Outcome::kFailed) {
      return Outcome::kFailed;
    }
    if (user.listed) {
      append(user.name);
    }
    known[user.name] = user;
  }
  names.insert(names.end(), members.begin(), members.end());
  return Outcome::kFound;
}

bool AccountScan::FindFolded(const std::vector<std::string>& folded, const UsersByName& known,
                             std::vector<UserRow>& users) const {
  if (!Prove()) {
    return false;
  }
  const std::vector<uint32_t>& unfolded = users_.Unfolded();
  if (unfolded.size() > kMostMembers || !users_.HasIdWithin(ranges_.uid_min, ranges_.uid_max)) {
    return false;
  }
  struct First {
    size_t entry = FileScan::kNone;
    UserRow user;
  };
  std::vector<First> found(folded.size());
  const auto take = [&](size_t i, size_t entry, UserRow user) {
    if (user.listed && entry < found[i].entry) {
      found[i] = {entry, std::move(user)};
    }
  };
  for (const size_t entry : unfolded) {
    UserRow user;
    if (ReadRow(users_, entry, user) == Outcome::kFailed) {
      return false;
    }
    const std::string name = FoldCase(user.name);
    const auto at = std::lower_bound(folded.begin(), folded.end(), name);
    if (at != folded.end() && *at == name) {
      take(static_cast<size_t>(at - folded.begin()), entry, std::move(user));
    }
  }
  std::vector<size_t> asked;  // of the folded names
  std::vector<std::string> names;
  for (size_t i = 0; i < folded.size(); i++) {
    // Where nobody else has the name, it does not matter which entry it is.
    const auto user = found[i].entry == FileScan::kNone ? known.find(folded[i]) : known.end();
    if (user == known.end()) {
      asked.push_back(i);
      names.push_back(folded[i]);
    } else if (!user->second.name.empty()) {
      take(i, 0, user->second);
    }
  }
  const std::vector<size_t> exact = users_.FindNames(names);
  for (size_t i = 0; i < names.size(); i++) {
    UserRow user;
    if (exact[i] != FileScan::kNone && ReadRow(users_, exact[i], user) == Outcome::kFailed) {
      return false;
    }
    if (user.name == names[i]) {
      take(asked[i], exact[i], std::move(user));
    }
  }
  for (First& first : found) {
    if (first.entry != FileScan::kNone) {
      users.push_back(std::move(first.user));
    }
  }
  return true;
}

}  // namespace korvmailserver::account
