// What an account source is: one small interface, one file per source.
//
// A look-up has three outcomes; absent and failed are never the same value. A source that cannot be
// opened is a source that refuses, with a clear text (RefusingSource).
#ifndef PLATFORM_ACCOUNT_SOURCE_H
#define PLATFORM_ACCOUNT_SOURCE_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/account/table.h"

namespace korvmailserver::account {

enum class Outcome { kFound, kUnknown, kFailed };

// Look-ups in a table that may be null because its source failed.
template <class Row>
Outcome Pick(const Row* found, Row& row) {
  if (found == nullptr) {
    return Outcome::kUnknown;
  }
  row = *found;
  return Outcome::kFound;
}
template <class TablePointer, class Row>
Outcome PickByName(const TablePointer& table, const std::string& name, Row& row) {
  return table == nullptr ? Outcome::kFailed : Pick(table->ByName(name), row);
}
template <class TablePointer, class Row>
Outcome PickById(const TablePointer& table, unsigned int id, Row& row) {
  return table == nullptr ? Outcome::kFailed : Pick(table->ById(id), row);
}

// A whole answer; a null table comes with the reason.
struct Tables {
  std::shared_ptr<const UserTable> users;
  std::shared_ptr<const GroupTable> groups;
  std::string users_error, groups_error;
};

class Source {
 public:
  virtual ~Source() = default;

  // All users, all groups with what is known of their members. Null: the source failed.
  virtual std::shared_ptr<const UserTable> Users() = 0;
  virtual std::shared_ptr<const GroupTable> Groups() = 0;
  // Both, as near to one point in time as the source can.
  virtual Tables ReadAll();

  // `row` stays untouched unless found.
  virtual Outcome Find(const std::string& name, UserRow& row) = 0;
  virtual Outcome Find(const std::string& name, GroupRow& row) = 0;
  virtual Outcome FindById(unsigned int uid, UserRow& row) = 0;
  virtual Outcome FindById(unsigned int gid, GroupRow& row) = 0;
  // Full names of the members. Here in terms of the two tables.
  virtual Outcome ListMembers(const std::string& group, std::vector<std::string>& names);
  // See korvmailserver::ListMemberUsers.
  virtual bool ListMemberUsers(const std::vector<std::string>& /*groups*/,
                               std::vector<UserRow>& /*users*/) {
    return false;
  }
  // See korvmailserver::ForEachPlainGroup.
  virtual bool ForEachPlainGroup(const std::vector<std::string>& /*groups*/,
                                 const PlainGroupVisitor& /*use*/) {
    return false;
  }

  // A source that answers as this one does now, ready for questions about few accounts.
  virtual std::shared_ptr<Source> ForFew(const std::shared_ptr<Source>& self);
  // The full names of users who will be asked about.
  virtual void Expect(const std::vector<std::string>& /*names*/) {}

  // The full name of a short one; a full name stays as it is.
  virtual std::string FullName(const std::string& short_name) const { return short_name; }

  // False when only the host settings can make this name an internal account; saves the look-up.
  virtual bool MayBeInternal(const std::string& /*name*/) const { return true; }

  // Steps "connect" and "bind" of an inspection; stops at the first that fails.
  virtual void Check(std::vector<AccountCheckStep>& steps) = 0;

  // Why the last call failed; empty when it has been taken already.
  std::string TakeError() { return std::exchange(error_, {}); }

 protected:
  // The outcome for what a table does not hold: unknown, or failed when its gaps may hold it.
  Outcome Absent(const std::string& what, const Gaps& gaps);

  Outcome Fail(const std::string& text) {
    error_ = text;
    return Outcome::kFailed;
  }

  // What an enumeration comes to: null when it broke off with nothing read, else the table, which
  // knows what it lacks. `origin` names the source in the log.
  template <class AnyTable>
  std::shared_ptr<const AnyTable> Conclude(const std::shared_ptr<AnyTable>& table, bool whole,
                                           const std::string& error, const std::string& origin) {
    if (!whole && table->rows().empty()) {
      Fail(error);
      return nullptr;
    }
    if (!whole) {
      table->CutShort(error);
    }
    table->Announce(origin);
    return table;
  }

  // The users as ReadAll needs them: with all that the source can tell of their groups.
  virtual std::shared_ptr<const UserTable> UsersWithGroups() { return Users(); }

 private:
  std::string error_;
};

// A source whose look-ups are answered from its two tables.
class TableSource : public Source {
 public:
  Outcome Find(const std::string& name, UserRow& row) override;
  Outcome Find(const std::string& name, GroupRow& row) override;
  Outcome FindById(unsigned int uid, UserRow& row) override;
  Outcome FindById(unsigned int gid, GroupRow& row) override;
};

class RefusingSource : public TableSource {
 public:
  explicit RefusingSource(std::string text) : text_(std::move(text)) {}
  std::shared_ptr<const UserTable> Users() override;
  std::shared_ptr<const GroupTable> Groups() override;
  void Check(std::vector<AccountCheckStep>& steps) override;

 private:
  std::string text_;
};

// Answers everything from the first enumeration of another source, failures too. Users and groups
// are read together, so that members and accounts are of one point in time.
class SnapshotSource : public TableSource {
 public:
  explicit SnapshotSource(std::shared_ptr<Source> source) : source_(std::move(source)) {}
  std::shared_ptr<const UserTable> Users() override;
  std::shared_ptr<const GroupTable> Groups() override;
  std::string FullName(const std::string& short_name) const override {
    return source_->FullName(short_name);
  }
  bool MayBeInternal(const std::string& name) const override {
    return source_->MayBeInternal(name);
  }
  void Check(std::vector<AccountCheckStep>& steps) override { source_->Check(steps); }
  bool ListMemberUsers(const std::vector<std::string>& groups,
                       std::vector<UserRow>& users) override;
  bool ForEachPlainGroup(const std::vector<std::string>& groups,
                         const PlainGroupVisitor& use) override;

 private:
  void Read();

  std::shared_ptr<Source> source_;
  Tables tables_;
  bool read_ = false;
};

// The names, letter case folded, each once, in order.
std::vector<std::string> FoldedOnce(const std::vector<std::string>& names);

std::shared_ptr<Source> MakeLocalSource();
// `domain` is the account domain of full names; empty for none.
std::shared_ptr<Source> MakeLdapSource(const std::string& domain);
// `domain` is the Windows domain's short name.
std::shared_ptr<Source> MakeWinbindSource(const std::string& domain);

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_SOURCE_H
