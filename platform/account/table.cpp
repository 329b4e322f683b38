#include "platform/account/table.h"

#include <algorithm>
#include <utility>

#include "platform/include/maillog.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

template <class Row>
uint32_t Table<Row>::RowOfName(const std::string& name) const {
  if (after_found_ < rows_.size() && rows_[after_found_].name == name) {
    return after_found_++;
  }
  const uint32_t found =
      by_name_.Find(HashIndex::HashOf(name), [&](uint32_t row) { return rows_[row].name == name; });
  after_found_ = found == HashIndex::kNone ? after_found_ : found + 1;
  return found;
}

template <class Row>
uint32_t Table<Row>::RowOfFolded(const std::string& folded) const {
  return by_folded_.Find(HashIndex::HashOf(folded),
                         [&](uint32_t row) { return FoldCase(rows_[row].name) == folded; });
}

template <class Row>
uint32_t Table<Row>::RowOfId(unsigned int id) const {
  if (!ids_ascend_) {
    return by_id_.Find(HashIndex::HashOf(id), [&](uint32_t row) { return IdOf(rows_[row]) == id; });
  }
  const auto found =
      std::lower_bound(rows_.begin(), rows_.end(), id,
                       [](const Row& row, unsigned int wanted) { return IdOf(row) < wanted; });
  return found == rows_.end() || IdOf(*found) != id ? HashIndex::kNone
                                                    : static_cast<uint32_t>(found - rows_.begin());
}

template <class Row>
uint32_t Table<Row>::TakeId(unsigned int id, uint32_t row) {
  if (ids_ascend_ && (row == 0 || IdOf(rows_[row - 1]) < id)) {
    return HashIndex::kNone;
  }
  for (uint32_t earlier = 0; ids_ascend_ && earlier < row; earlier++) {
    by_id_.Add(HashIndex::HashOf(IdOf(rows_[earlier])), earlier);
  }
  ids_ascend_ = false;
  return by_id_.FindOrAdd(HashIndex::HashOf(id), row,
                          [&](uint32_t other) { return IdOf(rows_[other]) == id; });
}

template <class Row>
uint32_t Table<Row>::RowOfKey(const std::string& key) const {
  return by_key_.Find(HashIndex::HashOf(key), [&](uint32_t row) { return rows_[row].key == key; });
}

template <class Row>
const Row* Table<Row>::Add(Row&& row) {
  const auto number = static_cast<uint32_t>(rows_.size());
  if (by_name_.FindOrAdd(HashIndex::HashOf(row.name), number, [&](uint32_t other) {
        return rows_[other].name == row.name;
      }) != HashIndex::kNone) {
    Skip("the name \"" + row.name + "\" stands there more than once", row.name);
    return nullptr;
  }
  rows_.push_back(std::move(row));
  Row& added = rows_.back();
  if (name_case_ == NameCase::kFolded) {
    const std::string folded = FoldCase(added.name);
    by_folded_.FindOrAdd(HashIndex::HashOf(folded), number,
                         [&](uint32_t other) { return FoldCase(rows_[other].name) == folded; });
  }
  if (!added.key.empty()) {
    by_key_.FindOrAdd(HashIndex::HashOf(added.key), number,
                      [&](uint32_t other) { return rows_[other].key == added.key; });
  }
  if (TakeId(IdOf(added), number) != HashIndex::kNone && added.listed) {
    added.listed = false;
    first_shared_ = shared_ids_ == 0 ? added.name : first_shared_;
    shared_ids_++;
  }
  listed_ += added.listed ? 1 : 0;
  return &added;
}

template <class Row>
void Table<Row>::Skip(const std::string& why, const std::string& name, unsigned int gid) {
  gaps_.missing++;
  if (gaps_.why.empty()) {
    gaps_.why = why;
  }
  if (!name.empty()) {
    gaps_.names.push_back(name);
    gaps_.folded_names.insert(FoldCase(name));
  }
  if (gid != KORV_UNKNOWN_ID) {
    gaps_.gids.insert(gid);
  }
}

template <class Row>
void Table<Row>::CutShort(const std::string& why) {
  gaps_.missing++;
  gaps_.cut_short = true;
  gaps_.why = why;
}

template <class Row>
void Table<Row>::Announce(const std::string& origin) const {
  if (!complete()) {
    maillog(kLogWarning,
            "%s: at least %ld entries are missing (%s); nobody is deleted until that is mended",
            origin.c_str(), gaps_.missing, gaps_.why.c_str());
  }
  if (shared_ids_ > 0) {
    maillog(kLogWarning,
            "%s: %ld entries have the id of an earlier one and are left out, the first is \"%s\"",
            origin.c_str(), shared_ids_, first_shared_.c_str());
  }
}

template <class Row>
const Row* Table<Row>::ByName(const std::string& name) const {
  const uint32_t exact = RowOfName(name);
  return At(exact != HashIndex::kNone || name_case_ == NameCase::kExact
                ? exact
                : RowOfFolded(FoldCase(name)));
}

template <class Row>
const Row* Table<Row>::ById(unsigned int id) const {
  return At(RowOfId(id));
}

template <class Row>
const Row* Table<Row>::ByKey(const std::string& key) const {
  return At(RowOfKey(key));
}

template class Table<UserRow>;
template class Table<GroupRow>;

void UserTable::Add(UserRow&& row) {
  const UserRow* added = Table<UserRow>::Add(std::move(row));
  if (added == nullptr) {
    return;
  }
  const auto number = static_cast<uint32_t>(rows().size() - 1);
  if (added->listed && !IsSurelyFolded(added->name)) {
    unfolded_.emplace(FoldCase(added->name), number);
  }
  by_group_in_order_ = false;
  by_group_.emplace_back(added->gid, number);
  for (unsigned int gid : added->gids) {
    if (gid != added->gid) {
      by_group_.emplace_back(gid, number);
    }
  }
}

void UserTable::OrderGroups() const {
  if (!std::exchange(by_group_in_order_, true) &&
      !std::is_sorted(by_group_.begin(), by_group_.end())) {
    std::sort(by_group_.begin(), by_group_.end());
  }
}

bool UserTable::IsFirstListed(const UserRow& user) const {
  return unfolded_.empty() || FirstListed(FoldCase(user.name)) == &user;
}

const UserRow* UserTable::FirstListed(const std::string& folded) const {
  const auto found = unfolded_.find(folded);
  const uint32_t first = found == unfolded_.end() ? HashIndex::kNone : found->second;
  const uint32_t exact = RowOfName(folded);
  if (exact < first && rows()[exact].listed) {
    return &rows()[exact];
  }
  return first == HashIndex::kNone ? nullptr : &rows()[first];
}

namespace {

// Which values came before. A few are compared one by one, which is faster than a set.
template <class Value>
class SeenBefore {
 public:
  // Whether it is the first time.
  bool Add(const Value& value) {
    if (many_.empty()) {
      if (std::find(few_.begin(), few_.end(), value) != few_.end()) {
        return false;
      }
      few_.push_back(value);
      if (few_.size() > kFew) {
        many_.insert(few_.begin(), few_.end());
      }
      return true;
    }
    return many_.insert(value).second;
  }

 private:
  static constexpr size_t kFew = 32;
  std::vector<Value> few_;
  std::unordered_set<Value> many_;
};

// Each name once.
class MemberNames {
 public:
  explicit MemberNames(std::vector<std::string>& names) : names_(names) {}
  void Append(const UserRow& user) {
    if (seen_users_.Add(&user)) {
      names_.push_back(user.name);
    }
  }
  void AppendUnknown(const std::string& name) {
    if (seen_names_.Add(name)) {
      names_.push_back(name);
    }
  }

 private:
  std::vector<std::string>& names_;
  SeenBefore<const UserRow*> seen_users_;
  SeenBefore<std::string> seen_names_;
};

class MemberUids {
 public:
  MemberUids(const UserTable& users, std::vector<unsigned int>& uids)
      : users_(users), uids_(uids) {}
  void Append(const UserRow& user) {
    are_plain_ = are_plain_ && user.uid != KORV_UNKNOWN_ID && users_.IsFirstListed(user);
    uids_.push_back(user.uid);
  }
  void AppendUnknown(const std::string& /*name*/) { are_plain_ = false; }
  bool ArePlain() const { return are_plain_; }

 private:
  const UserTable& users_;
  std::vector<unsigned int>& uids_;
  bool are_plain_ = true;
};

// One walk over a group and the groups nested in it.
template <class Members>
class MemberWalk {
 public:
  MemberWalk(const UserTable& users, const GroupTable& groups, Members& members)
      : users_(users), groups_(groups), members_(members) {}

  bool Run(const GroupRow& start, std::string& why) {
    Enter(start);
    for (size_t i = 0; i < order_.size(); i++) {
      if (!Visit(*order_[i], why)) {
        return false;
      }
    }
    return true;
  }

 private:
  void Enter(const GroupRow& group) {
    if (entered_.Add(&group)) {
      order_.push_back(&group);
    }
  }

  void AppendUser(const UserRow& user) {
    if (user.listed) {
      members_.Append(user);
    }
  }

  bool Visit(const GroupRow& group, std::string& why) {
    if (Unknowable(group, why)) {
      return false;
    }
    for (const std::string& name : group.members) {
      if (const UserRow* user = users_.ByName(name)) {
        AppendUser(*user);
      } else {
        members_.AppendUnknown(name);
      }
    }
    for (const std::string& key : group.member_keys) {
      if (!VisitKey(key, why)) {
        return false;
      }
    }
    users_.ForEachOfGroup(group.gid, [this](const UserRow& user) { AppendUser(user); });
    return true;
  }

  // A key that neither table has is an entry of another kind (a computer, somebody deleted) when
  // both tables are whole, and may be anybody when they are not.
  bool VisitKey(const std::string& key, std::string& why) {
    if (const UserRow* user = users_.ByKey(key)) {
      AppendUser(*user);
    } else if (const GroupRow* nested = groups_.ByKey(key)) {
      Enter(*nested);
    } else if (!groups_.complete() || !users_.complete()) {
      why = users_.complete() ? groups_.gaps().why : users_.gaps().why;
      return false;
    }
    return true;
  }

  bool Unknowable(const GroupRow& group, std::string& why) const {
    if (!users_.memberships_hidden().empty()) {
      why = users_.memberships_hidden();
      return true;
    }
    if (!group.members_hidden.empty()) {
      why = group.members_hidden;
      return true;
    }
    const Gaps& gaps = users_.gaps();
    const auto unreadable = [&](const std::string& name) {
      return users_.ByName(name) == nullptr && gaps.folded_names.count(FoldCase(name)) != 0;
    };
    const bool named = !gaps.folded_names.empty() &&
                       std::any_of(group.members.begin(), group.members.end(), unreadable);
    why = gaps.why;
    return gaps.cut_short || gaps.gids.count(group.gid) != 0 || named;
  }

  const UserTable& users_;
  const GroupTable& groups_;
  Members& members_;
  std::vector<const GroupRow*> order_;
  SeenBefore<const GroupRow*> entered_;
};

}  // namespace

bool CollectMembers(const UserTable& users, const GroupTable& groups, const GroupRow& group,
                    std::vector<std::string>& names, std::string& why) {
  MemberNames members(names);
  return MemberWalk(users, groups, members).Run(group, why);
}

bool CollectMemberUids(const UserTable& users, const GroupTable& groups, const GroupRow& group,
                       std::vector<unsigned int>& uids) {
  std::string why;
  MemberUids members(users, uids);
  const bool is_told = MemberWalk(users, groups, members).Run(group, why);
  if (!std::is_sorted(uids.begin(), uids.end())) {
    std::sort(uids.begin(), uids.end());
  }
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  return is_told && members.ArePlain();
}

}  // namespace korvmailserver::account
