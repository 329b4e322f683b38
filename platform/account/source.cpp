#include "platform/account/source.h"

#include <algorithm>

#include "platform/system/fold_case.h"

namespace korvmailserver::account {

Tables Source::ReadAll() {
  Tables tables;
  tables.users = UsersWithGroups();
  tables.users_error = TakeError();
  tables.groups = Groups();
  tables.groups_error = TakeError();
  return tables;
}

Outcome Source::ListMembers(const std::string& group, std::vector<std::string>& names) {
  const Tables tables = ReadAll();
  if (tables.users == nullptr || tables.groups == nullptr) {
    return Fail(tables.users == nullptr ? tables.users_error : tables.groups_error);
  }
  const GroupRow* row = tables.groups->ByName(FullName(group));
  if (row == nullptr) {
    return Absent(group, tables.groups->gaps());
  }
  std::string why;
  if (!CollectMembers(*tables.users, *tables.groups, *row, names, why)) {
    return Fail("the members of the group \"" + group + "\" cannot be told: " + why);
  }
  return Outcome::kFound;
}

std::shared_ptr<Source> Source::ForFew(const std::shared_ptr<Source>& self) {
  return std::make_shared<SnapshotSource>(self);
}

Outcome Source::Absent(const std::string& what, const Gaps& gaps) {
  const bool may_be_there =
      gaps.cut_short || gaps.folded_names.count(FoldCase(FullName(what))) != 0;
  return may_be_there ? Fail("\"" + what + "\" cannot be told: " + gaps.why) : Outcome::kUnknown;
}

Outcome TableSource::Find(const std::string& name, UserRow& row) {
  const auto users = Users();
  const Outcome outcome = PickByName(users, FullName(name), row);
  return outcome == Outcome::kUnknown ? Absent(name, users->gaps()) : outcome;
}

Outcome TableSource::Find(const std::string& name, GroupRow& row) {
  return PickByName(Groups(), FullName(name), row);
}

Outcome TableSource::FindById(unsigned int uid, UserRow& row) {
  const auto users = Users();
  const Outcome outcome = PickById(users, uid, row);
  return outcome == Outcome::kUnknown ? Absent(std::to_string(uid), users->gaps()) : outcome;
}

Outcome TableSource::FindById(unsigned int gid, GroupRow& row) {
  return PickById(Groups(), gid, row);
}

std::shared_ptr<const UserTable> RefusingSource::Users() {
  Fail(text_);
  return nullptr;
}

std::shared_ptr<const GroupTable> RefusingSource::Groups() {
  Fail(text_);
  return nullptr;
}

void RefusingSource::Check(std::vector<AccountCheckStep>& steps) {
  steps.push_back({"connect", false, text_});
}

std::vector<std::string> FoldedOnce(const std::vector<std::string>& names) {
  std::vector<std::string> folded;
  folded.reserve(names.size());
  for (const std::string& name : names) {
    folded.push_back(FoldCase(name));
  }
  std::sort(folded.begin(), folded.end());
  folded.erase(std::unique(folded.begin(), folded.end()), folded.end());
  return folded;
}

void SnapshotSource::Read() {
  if (!std::exchange(read_, true)) {
    tables_ = source_->ReadAll();
  }
}

std::shared_ptr<const UserTable> SnapshotSource::Users() {
  Read();
  if (tables_.users == nullptr) {
    Fail(std::exchange(tables_.users_error, {}));
  }
  return tables_.users;
}

std::shared_ptr<const GroupTable> SnapshotSource::Groups() {
  Read();
  if (tables_.groups == nullptr) {
    Fail(std::exchange(tables_.groups_error, {}));
  }
  return tables_.groups;
}

bool SnapshotSource::ForEachPlainGroup(const std::vector<std::string>& groups,
                                       const PlainGroupVisitor& use) {
  Read();
  const auto& [all, all_groups, users_error, groups_error] = tables_;
  if (all == nullptr || all_groups == nullptr || !all->complete() || all->listed() == 0) {
    return false;
  }
  std::vector<unsigned int> uids;
  for (size_t i = 0; i < groups.size(); i++) {
    const GroupRow* row = all_groups->ByName(FullName(groups[i]));
    uids.clear();
    if (row != nullptr && CollectMemberUids(*all, *all_groups, *row, uids)) {
      use(i, uids);
    }
  }
  return true;
}

bool SnapshotSource::ListMemberUsers(const std::vector<std::string>& groups,
                                     std::vector<UserRow>& users) {
  Read();
  const auto& [all, all_groups, users_error, groups_error] = tables_;
  if (all == nullptr || all_groups == nullptr || !all->complete() || all->listed() == 0) {
    return false;
  }
  std::vector<std::string> names;
  std::string why;
  for (const std::string& group : groups) {
    const GroupRow* row = all_groups->ByName(group);
    if (row == nullptr || !CollectMembers(*all, *all_groups, *row, names, why)) {
      return false;
    }
  }
  for (const std::string& folded : FoldedOnce(names)) {
    if (const UserRow* user = all->FirstListed(folded)) {
      users.push_back(*user);
    }
  }
  return true;
}

}  // namespace korvmailserver::account
