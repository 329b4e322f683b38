#include "platform/account/few_source.h"

namespace korvmailserver::account {

namespace {

class FewSource : public SnapshotSource {
 public:
  FewSource(const std::shared_ptr<Source>& source, std::shared_ptr<const AccountScan> scan)
      : SnapshotSource(source), scan_(std::move(scan)) {}

  std::shared_ptr<const UserTable> Users() override {
    scan_.reset();
    return SnapshotSource::Users();
  }
  std::shared_ptr<const GroupTable> Groups() override {
    scan_.reset();
    return SnapshotSource::Groups();
  }

  Outcome Find(const std::string& name, UserRow& row) override {
    const auto known = known_.find(name);
    if (scan_ != nullptr && known != known_.end()) {
      return Pick(known->second.name.empty() ? nullptr : &known->second, row);
    }
    return Ask([&] { return scan_->Find(name, row); },
               [&] { return SnapshotSource::Find(name, row); });
  }
  Outcome Find(const std::string& name, GroupRow& row) override {
    const auto known = groups_.find(name);
    if (scan_ != nullptr && known != groups_.end()) {
      return Pick(&known->second.row, row);
    }
    return Ask(
        [&] {
          const Outcome outcome = scan_->Find(name, row);
          if (outcome == Outcome::kFound) {
            groups_[name].row = row;
          }
          return outcome;
        },
        [&] { return SnapshotSource::Find(name, row); });
  }
  Outcome FindById(unsigned int uid, UserRow& row) override {
    return Ask([&] { return scan_->FindById(uid, row); },
               [&] { return SnapshotSource::FindById(uid, row); });
  }
  Outcome FindById(unsigned int gid, GroupRow& row) override {
    return Ask([&] { return scan_->FindById(gid, row); },
               [&] { return SnapshotSource::FindById(gid, row); });
  }
  Outcome ListMembers(const std::string& group, std::vector<std::string>& names) override {
    GroupRow row;
    const Outcome found = scan_ == nullptr ? Outcome::kFailed : Find(group, row);
    if (scan_ != nullptr) {
      const Outcome listed =
          found == Outcome::kFound ? ListKnownMembers(groups_[group], names) : found;
      if (listed != Outcome::kFailed) {
        return listed;
      }
      scan_.reset();
    }
    return SnapshotSource::ListMembers(group, names);
  }

  bool ListMemberUsers(const std::vector<std::string>& groups,
                       std::vector<UserRow>& users) override {
    std::vector<std::string> names;
    for (const std::string& group : groups) {
      if (scan_ != nullptr && ListMembers(group, names) != Outcome::kFound) {
        return false;
      }
    }
    return scan_ != nullptr && scan_->FindFolded(FoldedOnce(names), known_, users)
               ? true
               : SnapshotSource::ListMemberUsers(groups, users);
  }

  void Expect(const std::vector<std::string>& names) override {
    std::vector<std::string> unknown;
    for (const std::string& name : names) {
      if (known_.count(name) == 0) {
        unknown.push_back(name);
      }
    }
    if (scan_ != nullptr && !unknown.empty() && !scan_->FindAll(unknown, known_)) {
      scan_.reset();
    }
  }

 private:
  template <typename OfScan, typename OfTables>
  Outcome Ask(const OfScan& of_scan, const OfTables& of_tables) {
    if (scan_ != nullptr && questions_++ < kQuestionsToScan) {
      const Outcome outcome = of_scan();
      if (outcome != Outcome::kFailed) {
        return outcome;
      }
    }
    scan_.reset();
    return of_tables();
  }

  struct Group {
    GroupRow row;
    std::vector<std::string> members;
    bool are_members_known = false;
  };

  Outcome ListKnownMembers(Group& group, std::vector<std::string>& names) {
    if (!group.are_members_known) {
      const Outcome outcome = scan_->ListMembers(group.row, group.members, known_);
      if (outcome != Outcome::kFound) {
        return outcome;
      }
      group.are_members_known = true;
    }
    names.insert(names.end(), group.members.begin(), group.members.end());
    return Outcome::kFound;
  }

  std::shared_ptr<const AccountScan> scan_;  // null once the tables answer
  UsersByName known_;
  std::unordered_map<std::string, Group> groups_;
  int questions_ = 0;
};

}  // namespace

std::shared_ptr<Source> MakeFewSource(const std::shared_ptr<Source>& source,
                                      std::shared_ptr<const AccountScan> scan) {
  return std::make_shared<FewSource>(source, std::move(scan));
}

}  // namespace korvmailserver::account
