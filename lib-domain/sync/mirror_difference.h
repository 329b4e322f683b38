// Which accounts are new, known and gone, comparing the account system with its mirror. Only ids
// count: a renamed account is a known one.
#ifndef LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H
#define LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H

#include <string>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"

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
  const std::unordered_set<unsigned int> known(mirrored_ids.begin(), mirrored_ids.end());
  std::unordered_set<unsigned int> found;
  for (const Record& account : accounts) {
    found.insert(IdOf(account));
    (known.count(IdOf(account)) == 0 ? difference.created : difference.updated).push_back(account);
  }
  for (const unsigned int id : mirrored_ids) {
    if (found.count(id) == 0) {
      difference.deleted_ids.push_back(id);
    }
  }
  return difference;
}

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_MIRROR_DIFFERENCE_H
