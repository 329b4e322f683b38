// Accounts of a Windows domain, through winbindd.
//
// Members of a group come from the users' side: each user's groups as the domain resolves them,
// nested ones and the primary one included. winbindd's own member lists depend on a setting of its
// own ("winbind expand groups") that is off by default. Names are in lower case, as winbindd spells
// them; groups have no description there, users no mail address.
#include <sstream>

#include "platform/account/source.h"
#include "platform/account/winbind_query.h"
#include "platform/include/host_settings.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

namespace {

// Accounts that every domain has and that belong to no person.
bool IsBuiltIn(const std::string& full_name) {
  const std::string name = FoldCase(TrimDomainName(full_name));
  return name == "krbtgt" || name == "guest";
}

// Our own child process has printed the number.
unsigned int Number(const std::string& text) {
  return static_cast<unsigned int>(std::stoul(text));
}

void Fill(UserRow& user, const std::vector<std::string>& texts) {
  user.name = texts.at(0);
  user.uid = Number(texts.at(1));
  user.gid = Number(texts.at(2));
  user.full_name = texts.at(3);
  user.internal = IsBuiltIn(user.name);
  std::istringstream groups(texts.at(4));
  for (std::string gid; std::getline(groups, gid, ',');) {
    user.gids.push_back(Number(gid));
  }
}

void Fill(GroupRow& group, const std::vector<std::string>& texts) {
  group.name = texts.at(0);
  group.gid = Number(texts.at(1));
}

template <class Row>
Row Make(const Answer& answer) {
  Row row;
  Fill(row, answer.texts);
  return row;
}

class WinbindSource : public Source {
 public:
  explicit WinbindSource(std::string domain) : domain_(std::move(domain)) {}

  std::shared_ptr<const UserTable> Users() override;
  std::shared_ptr<const GroupTable> Groups() override;
  // One request for all: one time limit, and the domain controller is asked for once.
  Tables ReadAll() override { return Read({true, true, true}); }
  Outcome Find(const std::string& name, UserRow& row) override;
  Outcome Find(const std::string& name, GroupRow& row) override;
  Outcome FindById(unsigned int uid, UserRow& row) override;
  Outcome FindById(unsigned int gid, GroupRow& row) override;
  bool MayBeInternal(const std::string& name) const override { return IsBuiltIn(name); }
  void Check(std::vector<AccountCheckStep>& steps) override;

  std::string FullName(const std::string& short_name) const override {
    return short_name.find('\\') == std::string::npos ? domain_ + "\\" + short_name : short_name;
  }

 private:
  // Answers other than kFailed and kCount go to `take`. False and `error` when not all of them
  // came.
  bool Run(const Query& query, const std::function<void(const Answer&)>& take, std::string& error);
  Tables Read(const winbind::Wanted& wanted);
  template <class Row>
  Outcome FindOne(const Query& query, Row& row);
  // The name without the domain; empty when it is another domain's.
  std::string ShortName(const std::string& name) const;

  std::string domain_;
};

bool WinbindSource::Run(const Query& query, const std::function<void(const Answer&)>& take,
                        std::string& error) {
  HostSettings settings;
  if (!ReadHostSettings(settings, error)) {
    return false;
  }
  Budget budget(settings.winbind.timeout);
  std::string failure;
  const auto sort = [&](const Answer& answer) {
    if (answer.kind == winbind::kCount) {
      budget.ExtendFor(Number(answer.texts.at(0)));
    } else if (answer.kind != winbind::kFailed) {
      take(answer);
    } else if (failure.empty()) {
      failure = answer.texts.at(0);
    }
  };
  const bool ended = QueryInChild(query, sort, budget, error);
  if (!ended) {
    error = "winbindd: " + error + "; timeout in [winbind] of the host settings is " +
            std::to_string(settings.winbind.timeout);
  } else if (!failure.empty()) {
    error = failure;
  }
  return ended && failure.empty();
}

void Sort(const Answer& answer, UserTable& users, GroupTable& groups) {
  const std::string& name = answer.texts.at(0);
  switch (answer.kind) {
    case winbind::kUser:
      users.Add(Make<UserRow>(answer));
      break;
    case winbind::kGroup:
      groups.Add(Make<GroupRow>(answer));
      break;
    case winbind::kNoMemberships:
      users.HideMemberships("the groups of \"" + name + "\" cannot be told");
      break;
    case winbind::kNoGroup:
      groups.Skip("\"" + name + "\" is listed and cannot be looked up", name);
      break;
    default:
      // The controller answered, so this account has no ids, and no group loses a member by it.
      users.Skip("\"" + name + "\" is listed and cannot be looked up", "");
  }
}

Tables WinbindSource::Read(const winbind::Wanted& wanted) {
  const auto users = std::make_shared<UserTable>(NameCase::kFolded);
  const auto groups = std::make_shared<GroupTable>(NameCase::kFolded);
  std::string error;
  const bool whole =
      Run([&](const AnswerWriter& out) { winbind::QueryAccounts(domain_, wanted, out); },
          [&](const Answer& answer) { Sort(answer, *users, *groups); }, error);
  const std::string origin = "Windows domain " + domain_;
  Tables tables;
  if (wanted.users) {
    tables.users = Conclude(users, whole, error, origin);
    tables.users_error = TakeError();
  }
  if (wanted.groups) {
    tables.groups = Conclude(groups, whole, error, origin);
    tables.groups_error = TakeError();
  }
  return tables;
}

std::shared_ptr<const UserTable> WinbindSource::Users() {
  const Tables tables = Read({true, false, false});
  Fail(tables.users_error);
  return tables.users;
}

std::shared_ptr<const GroupTable> WinbindSource::Groups() {
  const Tables tables = Read({false, false, true});
  Fail(tables.groups_error);
  return tables.groups;
}

template <class Row>
Outcome WinbindSource::FindOne(const Query& query, Row& row) {
  bool found = false;
  std::string error;
  const auto take = [&](const Answer& answer) {
    if (answer.kind != winbind::kUnknown) {
      row = Make<Row>(answer);
      found = true;
    }
  };
  if (!Run(query, take, error)) {
    return Fail(error);
  }
  return found ? Outcome::kFound : Outcome::kUnknown;
}

std::string WinbindSource::ShortName(const std::string& name) const {
  const size_t backslash = name.find('\\');
  if (backslash == std::string::npos) {
    return name;
  }
  const bool ours = FoldCase(name.substr(0, backslash)) == FoldCase(domain_);
  return ours ? name.substr(backslash + 1) : std::string();
}

Outcome WinbindSource::Find(const std::string& name, UserRow& row) {
  const std::string short_name = ShortName(name);
  return FindOne([&](const AnswerWriter& out) { winbind::QueryUser(domain_, short_name, out); },
                 row);
}

Outcome WinbindSource::Find(const std::string& name, GroupRow& row) {
  const std::string short_name = ShortName(name);
  return FindOne([&](const AnswerWriter& out) { winbind::QueryGroup(domain_, short_name, out); },
                 row);
}

Outcome WinbindSource::FindById(unsigned int uid, UserRow& row) {
  return FindOne([&](const AnswerWriter& out) { winbind::QueryUid(domain_, uid, out); }, row);
}

Outcome WinbindSource::FindById(unsigned int gid, GroupRow& row) {
  return FindOne([&](const AnswerWriter& out) { winbind::QueryGid(domain_, gid, out); }, row);
}

void WinbindSource::Check(std::vector<AccountCheckStep>& steps) {
  const auto step = [&](const char* name, const Query& query) {
    AccountCheckStep made = {name, false, {}};
    std::string error;
    made.ok = Run(
        query, [&](const Answer& answer) { made.detail = answer.texts.at(0); }, error);
    made.detail = made.ok ? made.detail : error;
    steps.push_back(made);
    return made.ok;
  };
  step("connect", winbind::QueryDaemon) &&
      step("bind", [&](const AnswerWriter& out) { winbind::QueryController(domain_, out); });
}

}  // namespace

std::shared_ptr<Source> MakeWinbindSource(const std::string& domain) {
  if (domain.empty()) {
    return std::make_shared<RefusingSource>(
        "\"win_domain_short_name\" of the mail configuration is not set");
  }
  return std::make_shared<WinbindSource>(domain);
}

}  // namespace korvmailserver::account
