// Which accounts are new, known and gone, comparing the account system with its mirror. Only ids
// count: a renamed account is a known one.
#ifndef LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H
#define LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H

#include <algorithm>
#include <iterator>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::UTILS::INTERNAL {

inline unsigned int IdOf(const RECORD::User& user) {
  return user.GetUID();
}
inline unsigned int IdOf(const RECORD::Group& group) {
  return group.GetGID();
}
inline std::string NameOf(const RECORD::User& user) {
  return user.GetUserName();
}
inline std::string NameOf(const RECORD::Group& group) {
  return group.GetGroupName();
}

template <typename Record>
std::vector<std::string> NamesOf(const std::vector<Record>& records) {
  std::vector<std::string> names;
  names.reserve(records.size());
  for (const Record& record : records) {
    names.push_back(NameOf(record));
  }
  return names;
}

template <typename Record>
std::vector<unsigned int> IdsOf(const std::vector<Record>& records) {
  std::vector<unsigned int> ids;
  ids.reserve(records.size());
  for (const Record& record : records) {
    ids.push_back(IdOf(record));
  }
  return ids;
}

inline std::vector<unsigned int> Sorted(std::vector<unsigned int> ids) {
  if (!std::is_sorted(ids.begin(), ids.end())) {
    std::sort(ids.begin(), ids.end());
  }
  return ids;
}

// Looks ids up in a sorted list. Whoever asks in that order, as accounts and their mirror mostly
// stand, gets the answer from where the last one was found.
class SortedIds {
 public:
  explicit SortedIds(std::vector<unsigned int> ids) : ids_(Sorted(std::move(ids))) {}
  bool Holds(unsigned int id) {
    if (next_ == ids_.size() || ids_[next_] != id) {
      const auto found = std::lower_bound(ids_.begin(), ids_.end(), id);
      next_ = static_cast<size_t>(found - ids_.begin());
    }
    const bool is_found = next_ < ids_.size() && ids_[next_] == id;
    next_ += is_found ? 1 : 0;
    return is_found;
  }

 private:
  std::vector<unsigned int> ids_;
  size_t next_ = 0;
};

template <typename Record>
struct MirrorDifference {
  std::vector<Record> created;            // accounts without a row
  std::vector<Record> updated;            // accounts with one, as the account system has them
  std::vector<unsigned int> deleted_ids;  // rows without an account
};

// All lists are in the order of their input. When the accounts are incomplete, nothing may be
// deleted: the caller drops `deleted_ids` then.
template <typename Record>
MirrorDifference<Record> CompareWithMirror(std::vector<Record> accounts,
                                           const std::vector<unsigned int>& mirrored_ids) {
  MirrorDifference<Record> difference;
  SortedIds known(mirrored_ids);
  SortedIds found(IdsOf(accounts));
  for (const unsigned int id : mirrored_ids) {
    if (!found.Holds(id)) {
      difference.deleted_ids.push_back(id);
    }
  }
  const auto created =
      std::stable_partition(accounts.begin(), accounts.end(),
                            [&known](const Record& account) { return known.Holds(IdOf(account)); });
  difference.created.assign(std::make_move_iterator(created),
                            std::make_move_iterator(accounts.end()));
  accounts.erase(created, accounts.end());
  difference.updated = std::move(accounts);
  return difference;
}

// The known users whose name differs from the mirrored one, in mirror order. Of accounts that share
// a uid the last one counts, as it would if all of them were written in order.
inline std::vector<RenamedUser> FindRenamed(const std::vector<RECORD::User>& known,
                                            const std::vector<RECORD::User>& mirrored) {
  std::vector<std::pair<unsigned int, size_t>> accounts;
  accounts.reserve(known.size());
  for (size_t i = 0; i < known.size(); ++i) {
    if (known[i].IsValid()) {
      accounts.emplace_back(known[i].GetUID(), i);
    }
  }
  if (!std::is_sorted(accounts.begin(), accounts.end())) {
    std::sort(accounts.begin(), accounts.end());
  }
  std::vector<RenamedUser> renamed;
  auto next = accounts.begin();  // where the row's account stands when both are in order
  for (const RECORD::User& row : mirrored) {
    if (next == accounts.end() || next->first != row.GetUID()) {
      next = std::lower_bound(accounts.begin(), accounts.end(),
                              std::make_pair(row.GetUID(), size_t{0}));
    }
    const RECORD::User* account = nullptr;
    for (; next != accounts.end() && next->first == row.GetUID(); ++next) {
      account = &known[next->second];
    }
    if (account != nullptr && account->GetUserName() != row.GetUserName()) {
      renamed.push_back({row.GetUID(), row.GetUserName(), account->GetUserName(), {}});
    }
  }
  return renamed;
}

// Gives the renamed users what `records` say that they have.
inline void SetWhatTheyKeep(const std::vector<RECORD::DomainUser>& records,
                            std::vector<RenamedUser>& renamed) {
  std::unordered_map<unsigned int, RenamedUser*> renamed_by_uid;
  for (RenamedUser& user : renamed) {
    renamed_by_uid[user.uid] = &user;
  }
  for (const RECORD::DomainUser& record : records) {
    const auto user = renamed_by_uid.find(record.GetUID());
    if (user != renamed_by_uid.end()) {
      user->second->keeps.push_back(record);
    }
  }
}

// Whether `deleted` of `mirrored` accounts are more than the limit allows.
inline bool IsAboveLimit(const DeletionLimit& limit, size_t deleted, size_t mirrored) {
  constexpr size_t kAlways = 5;  // a tenth of a small company would be nobody
  const bool is_above_number = limit.number != 0 && deleted > limit.number;
  const bool is_above_share =
      limit.percent != 0 && deleted > kAlways && deleted * 100 > mirrored * limit.percent;
  return is_above_number || is_above_share;
}

// The names of those mirrored accounts that have one of the ids, which are in mirror order.
template <typename Record>
std::vector<std::string> NamesOfIds(const std::vector<Record>& mirrored,
                                    const std::vector<unsigned int>& ids) {
  std::vector<std::string> names;
  for (const Record& record : mirrored) {
    if (names.size() < ids.size() && IdOf(record) == ids[names.size()]) {
      names.push_back(NameOf(record));
    }
  }
  return names;
}

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H
