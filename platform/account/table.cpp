#include "platform/account/table.h"

#include <algorithm>
#include <utility>

#include "platform/include/maillog.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

template <class Row>
const Row* Table<Row>::Add(Row row) {
  if (by_name_.count(row.name) != 0) {
    Skip("the name \"" + row.name + "\" stands there more than once", row.name);
    return nullptr;
  }
  rows_.push_back(std::move(row));
  Row& added = rows_.back();
  by_name_.emplace(added.name, &added);
  if (name_case_ == NameCase::kFolded) {
    by_folded_.emplace(FoldCase(added.name), &added);
  }
  if (!added.key.empty()) {
    by_key_.emplace(added.key, &added);
  }
  if (!by_id_.emplace(IdOf(added), &added).second && added.listed) {
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
  if (const auto found = by_name_.find(name); found != by_name_.end()) {
    return found->second;
  }
  if (name_case_ == NameCase::kExact) {
    return nullptr;
  }
  const auto found = by_folded_.find(FoldCase(name));
  return found == by_folded_.end() ? nullptr : found->second;
}

template <class Row>
const Row* Table<Row>::ById(unsigned int id) const {
  const auto found = by_id_.find(id);
  return found == by_id_.end() ? nullptr : found->second;
}

template <class Row>
const Row* Table<Row>::ByKey(const std::string& key) const {
  const auto found = by_key_.find(key);
  return found == by_key_.end() ? nullptr : found->second;
}

template class Table<UserRow>;
template class Table<GroupRow>;

void UserTable::Add(UserRow row) {
  const UserRow* added = Table<UserRow>::Add(std::move(row));
  if (added == nullptr) {
    return;
  }
  by_group_[added->gid].push_back(added);
  for (unsigned int gid : added->gids) {
    if (gid != added->gid) {
      by_group_[gid].push_back(added);
    }
  }
}

const std::vector<const UserRow*>& UserTable::OfGroup(unsigned int gid) const {
  static const std::vector<const UserRow*> kNone;
  const auto found = by_group_.find(gid);
  return found == by_group_.end() ? kNone : found->second;
}

namespace {

// One walk over a group and the groups nested in it.
class MemberWalk {
 public:
  MemberWalk(const UserTable& users, const GroupTable& groups, std::vector<std::string>& names)
      : users_(users), groups_(groups), names_(names) {}

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
    if (entered_.insert(&group).second) {
      order_.push_back(&group);
    }
  }

  void Append(const std::string& name) {
    if (seen_.insert(name).second) {
      names_.push_back(name);
    }
  }

  void AppendUser(const UserRow& user) {
    if (user.listed) {
      Append(user.name);
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
        Append(name);
      }
    }
    for (const std::string& key : group.member_keys) {
      if (!VisitKey(key, why)) {
        return false;
      }
    }
    for (const UserRow* user : users_.OfGroup(group.gid)) {
      AppendUser(*user);
    }
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
  std::vector<std::string>& names_;
  std::vector<const GroupRow*> order_;
  std::unordered_set<const GroupRow*> entered_;
  std::unordered_set<std::string> seen_;
};

}  // namespace

bool CollectMembers(const UserTable& users, const GroupTable& groups, const GroupRow& group,
                    std::vector<std::string>& names, std::string& why) {
  return MemberWalk(users, groups, names).Run(group, why);
}

}  // namespace korvmailserver::account
