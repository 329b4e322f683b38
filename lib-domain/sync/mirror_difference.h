// Which accounts are new, known and gone, comparing the account system with its mirror. Only ids
// count: a renamed account is a known one.
#ifndef LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H
#define LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H

#include <algorithm>
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
inline bool Holds(const std::vector<unsigned int>& sorted, unsigned int id) {
  return std::binary_search(sorted.begin(), sorted.end(), id);
}

template <typename Record>
struct MirrorDifference {
  std::vector<Record> created;            // accounts without a row
  std::vector<Record> updated;            // accounts with one, as the account system has them
  std::vector<unsigned int> deleted_ids;  // rows without an account
};

// All lists are in the order of their input. When the accounts are incomplete, nothing may be
// deleted: the caller drops `deleted_ids` then.
template <typename Record>
MirrorDifference<Record> CompareWithMirror(const std::vector<Record>& accounts,
                                           const std::vector<unsigned int>& mirrored_ids) {
  MirrorDifference<Record> difference;
  const std::vector<unsigned int> known = Sorted(mirrored_ids);
  const std::vector<unsigned int> found = Sorted(IdsOf(accounts));
  for (const Record& account : accounts) {
    (Holds(known, IdOf(account)) ? difference.updated : difference.created).push_back(account);
  }
  for (const unsigned int id : mirrored_ids) {
    if (!Holds(found, id)) {
      difference.deleted_ids.push_back(id);
    }
  }
  return difference;
}

// The known users whose name differs from the mirrored one, in mirror order. Of accounts that share
// a uid the last one counts, as it would if all of them were written in order.
inline std::vector<RenamedUser> FindRenamed(const std::vector<RECORD::User>& known,
                                            const std::vector<RECORD::User>& mirrored) {
  std::vector<std::pair<unsigned int, size_t>> accounts;
  for (size_t i = 0; i < known.size(); ++i) {
    if (known[i].IsValid()) {
      accounts.emplace_back(known[i].GetUID(), i);
    }
  }
  if (!std::is_sorted(accounts.begin(), accounts.end())) {
    std::sort(accounts.begin(), accounts.end());
  }
  std::vector<RenamedUser> renamed;
  for (const RECORD::User& row : mirrored) {
    auto account = std::upper_bound(accounts.begin(), accounts.end(),
                                    std::make_pair(row.GetUID(), known.size()));
    if (account != accounts.begin() && (--account)->first == row.GetUID() &&
        known[account->second].GetUserName() != row.GetUserName()) {
      renamed.push_back(
          {row.GetUID(), row.GetUserName(), known[account->second].GetUserName(), {}});
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
