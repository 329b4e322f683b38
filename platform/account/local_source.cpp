// The local accounts: etc/passwd, etc/group and etc/login.defs below the root prefix, or the
// machine's own when the root has no etc/passwd.
//
// The files are read directly, not through the name-service modules, which would mix in the users
// of a directory. Tables of all accounts answer enumerations and whoever asks often; the first
// questions about single accounts are answered from a scan, which takes a tenth of the time.
// Both are kept while the three files stay as they were.
#include <cerrno>
#include <cstring>

#include "platform/account/account_files.h"
#include "platform/account/account_scan.h"
#include "platform/account/few_source.h"
#include "platform/account/source.h"
#include "platform/include/files.h"
#include "platform/include/root_path.h"
#include "platform/system/file_stamp.h"

namespace korvmailserver::account {

namespace {

bool are_plain = true;

struct AccountPaths {
  std::string passwd, group, login_defs;
};

AccountPaths FindPaths() {
  const std::string root = KLIBCFileExist(UnderRoot("/etc/passwd").c_str()) ? RootPrefix() : "";
  return {root + "/etc/passwd", root + "/etc/group", root + "/etc/login.defs"};
}

class LocalSource : public TableSource {
 public:
  std::shared_ptr<const UserTable> Users() override { return Refresh() ? users_ : nullptr; }
  std::shared_ptr<const GroupTable> Groups() override { return Refresh() ? groups_ : nullptr; }

  Tables ReadAll() override {
    if (Refresh()) {
      return {users_, groups_, {}, {}};
    }
    const std::string error = TakeError();
    return {nullptr, nullptr, error, error};
  }

  Outcome Find(const std::string& name, UserRow& row) override { return FindRow(name, row); }
  Outcome Find(const std::string& name, GroupRow& row) override { return FindRow(name, row); }
  Outcome FindById(unsigned int uid, UserRow& row) override { return FindRowById(uid, row); }
  Outcome FindById(unsigned int gid, GroupRow& row) override { return FindRowById(gid, row); }

  Outcome ListMembers(const std::string& group, std::vector<std::string>& names) override {
    GroupRow row;
    UsersByName members;
    Outcome outcome = Scan() ? scan_->Find(group, row) : Outcome::kFailed;
    if (outcome == Outcome::kFound) {
      outcome = scan_->ListMembers(row, names, members);
    }
    return outcome == Outcome::kFailed ? Source::ListMembers(group, names) : outcome;
  }

  // The tables where they are there.
  std::shared_ptr<Source> ForFew(const std::shared_ptr<Source>& self) override {
    return Scan() ? MakeFewSource(self, scan_) : Source::ForFew(self);
  }

  void Check(std::vector<AccountCheckStep>& steps) override {
    const bool ok = Refresh();
    const AccountPaths paths = FindPaths();
    steps.push_back({"connect", ok, ok ? paths.passwd + ", " + paths.group : TakeError()});
    if (ok) {
      steps.push_back({"bind", true, "not needed for local files"});
    }
  }

 private:
  template <class Row>
  Outcome FindRow(const std::string& name, Row& row) {
    const Outcome outcome = Scan() ? scan_->Find(name, row) : Outcome::kFailed;
    return outcome == Outcome::kFailed ? TableSource::Find(name, row) : outcome;
  }

  template <class Row>
  Outcome FindRowById(unsigned int id, Row& row) {
    const Outcome outcome = Scan() ? scan_->FindById(id, row) : Outcome::kFailed;
    return outcome == Outcome::kFailed ? TableSource::FindById(id, row) : outcome;
  }

  bool Hold(const AccountPaths& paths) const {
    return passwd_.Holds(paths.passwd) && group_.Holds(paths.group) &&
           login_defs_.Holds(paths.login_defs);
  }

  // Forgets what was read, for what is going to be read.
  void Restart(const AccountPaths& paths) {
    users_.reset();
    groups_.reset();
    scan_.reset();
    passwd_ = FileStamp::Of(paths.passwd);
    group_ = FileStamp::Of(paths.group);
    login_defs_ = FileStamp::Of(paths.login_defs);
  }

  // False when the tables are to answer: they are there, or it is they that can tell.
  bool Scan() {
    const AccountPaths paths = FindPaths();
    if (Hold(paths)) {
      return scan_ != nullptr && questions_++ < kQuestionsToScan;
    }
    Restart(paths);
    questions_ = 0;
    std::string login_defs;
    auto scan = std::make_shared<AccountScan>();
    if ((!login_defs_.exists || ReadFile(paths.login_defs, login_defs) == 0) &&
        scan->Read(paths.passwd, paths.group, ParseLoginDefs(login_defs))) {
      scan_ = std::move(scan);
    }
    return scan_ != nullptr;
  }

  // Both files at once, so that users and groups are of one point in time.
  bool Refresh() {
    const AccountPaths paths = FindPaths();
    if (users_ != nullptr && Hold(paths)) {
      return true;
    }
    Restart(paths);
    std::string passwd;
    std::string group;
    std::string login_defs;
    if (!Read(paths.passwd, passwd) || !Read(paths.group, group)) {
      return false;
    }
    if (login_defs_.exists && !Read(paths.login_defs, login_defs)) {
      return false;
    }
    Parse({paths.passwd, std::move(passwd)}, {paths.group, std::move(group)},
          ParseLoginDefs(login_defs));
    return true;
  }

  bool Read(const std::string& path, std::string& bytes) {
    if (ReadFile(path, bytes) == 0) {
      return true;
    }
    Fail("cannot read " + path + ": " + std::strerror(errno));
    return false;
  }

  void Parse(const AccountFile& passwd, const AccountFile& group, const IdRanges& ranges) {
    auto users = std::make_shared<UserTable>(NameCase::kExact);
    auto groups = std::make_shared<GroupTable>(NameCase::kExact);
    ParsePasswd(passwd, ranges, *users);
    ParseGroup(group, ranges, *groups);
    users->Announce("local accounts");
    groups->Announce("local accounts");
    are_plain = users->IsPlain() && groups->IsPlain();
    if (!groups->complete()) {
      // What damaged the one file may have reached the other, and a group's end is a user's loss.
      users->Skip(groups->gaps().why, "");
    }
    users_ = std::move(users);
    groups_ = std::move(groups);
  }

  FileStamp passwd_, group_, login_defs_;
  std::shared_ptr<const UserTable> users_;
  std::shared_ptr<const GroupTable> groups_;
  std::shared_ptr<const AccountScan> scan_;
  int questions_ = 0;
};

}  // namespace

std::vector<std::string> LocalAccountFiles() {
  const AccountPaths paths = FindPaths();
  return {paths.passwd, paths.group, paths.login_defs};
}

bool AreLocalAccountsPlain() {
  return are_plain;
}

std::shared_ptr<Source> MakeLocalSource() {
  return std::make_shared<LocalSource>();
}

}  // namespace korvmailserver::account
