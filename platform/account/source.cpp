#include "platform/account/source.h"

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

}  // namespace korvmailserver::account
