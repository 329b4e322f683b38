// Accounts of a Windows domain, through winbindd.
//
// Members of a group come from the users' side: each user's groups as the domain resolves them,
// nested ones and the primary one included. winbindd's own member lists depend on a setting of its
// own ("winbind expand groups") that is off by default. Names are in lower case, as winbindd spells
// them; groups have no description there, users no mail address.
#include <sstream>

#include "platform/account/source.h"
#include "platform/account/winbind_questions.h"
#include "platform/include/host_settings.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

namespace {

using Ask = std::function<void(const AnswerWriter&)>;

// Accounts that every domain has and that are nobody's.
bool IsBuiltIn(const std::string& full_name) {
  const std::string name = FoldCase(TrimDomainName(full_name));
  return name == "krbtgt" || name == "guest";
}

// Numbers come from the child as it printed them.
unsigned int Number(const std::string& text) {
  return static_cast<unsigned int>(std::stoul(text));
}

UserRow MakeUser(const std::vector<std::string>& texts) {
  UserRow user;
  user.name = texts.at(0);
  user.uid = Number(texts.at(1));
  user.gid = Number(texts.at(2));
  user.full_name = texts.at(3);
  user.internal = IsBuiltIn(user.name);
  std::istringstream groups(texts.at(4));
  for (std::string gid; std::getline(groups, gid, ',');) {
    user.gids.push_back(Number(gid));
  }
  return user;
}

GroupRow MakeGroup(const std::vector<std::string>& texts) {
  GroupRow group;
  group.name = texts.at(0);
  group.gid = Number(texts.at(1));
  return group;
}

class WinbindSource : public Source {
 public:
  explicit WinbindSource(std::string domain) : domain_(std::move(domain)) {}

  std::shared_ptr<const UserTable> Users() override { return ReadUsers(false); }
  std::shared_ptr<const GroupTable> Groups() override;
  Tables ReadAll() override;
  Outcome FindUser(const std::string& name, UserRow& row) override;
  Outcome FindUserById(unsigned int uid, UserRow& row) override;
  Outcome FindGroup(const std::string& name, GroupRow& row) override;
  Outcome FindGroupById(unsigned int gid, GroupRow& row) override;
  bool MayBeInternal(const std::string& name) const override { return IsBuiltIn(name); }
  void Check(std::vector<AccountCheckStep>& steps) override;

  std::string FullName(const std::string& short_name) const override {
    return short_name.find('\\') == std::string::npos ? domain_ + "\\" + short_name : short_name;
  }

 private:
  // Answers other than kFailed go to `take`. False and `error` when not all of them came.
  bool Run(const Ask& ask, const std::function<void(const Answer&)>& take, std::string& error);
  std::shared_ptr<const UserTable> ReadUsers(bool with_groups);
  template <class Row>
  Outcome FindOne(const Ask& ask, Row (*make)(const std::vector<std::string>&), Row& row);
  // The name without the domain; empty when it is another domain's.
  std::string ShortName(const std::string& name) const;

  std::string domain_;
};

bool WinbindSource::Run(const Ask& ask, const std::function<void(const Answer&)>& take,
                        std::string& error) {
  HostSettings settings;
  if (!ReadHostSettings(settings, error)) {
    return false;
  }
  std::string failure;
  const auto sort = [&](const Answer& answer) {
    answer.kind == winbind::kFailed ? static_cast<void>(failure = answer.texts.at(0))
                                    : take(answer);
  };
  const bool ended = AskInChild(ask, sort, settings.winbind.timeout, error);
  if (!ended) {
    error = "winbindd: " + error;
  } else if (!failure.empty()) {
    error = failure;
  }
  return ended && failure.empty();
}

std::shared_ptr<const UserTable> WinbindSource::ReadUsers(bool with_groups) {
  const auto users = std::make_shared<UserTable>(NameCase::kFolded);
  const auto take = [&](const Answer& answer) {
    const std::string& name = answer.texts.at(0);
    switch (answer.kind) {
      case winbind::kUser:
        users->Add(MakeUser(answer.texts));
        break;
      case winbind::kNoMemberships:
        users->HideMemberships("the groups of \"" + name + "\" cannot be told");
        break;
      default:
        // The controller answered, so it has no ids: nobody whom a group could lose.
        users->Skip("\"" + name + "\" is listed and cannot be looked up", "");
    }
  };
  std::string error;
  const bool whole = Run(
      [&](const AnswerWriter& out) { winbind::AskUsers(domain_, with_groups, out); }, take, error);
  if (!whole && users->rows().empty()) {
    Fail(error);
    return nullptr;
  }
  if (!whole) {
    users->CutShort(error);
  }
  users->Announce("Windows domain " + domain_);
  users->IndexGroups();
  return users;
}

std::shared_ptr<const GroupTable> WinbindSource::Groups() {
  const auto groups = std::make_shared<GroupTable>(NameCase::kFolded);
  const auto take = [&](const Answer& answer) {
    answer.kind == winbind::kGroup
        ? groups->Add(MakeGroup(answer.texts))
        : groups->Skip("\"" + answer.texts.at(0) + "\" is listed and cannot be looked up",
                       answer.texts.at(0));
  };
  std::string error;
  const bool whole =
      Run([&](const AnswerWriter& out) { winbind::AskGroups(domain_, out); }, take, error);
  if (!whole && groups->rows().empty()) {
    Fail(error);
    return nullptr;
  }
  if (!whole) {
    groups->CutShort(error);
  }
  groups->Announce("Windows domain " + domain_);
  return groups;
}

Tables WinbindSource::ReadAll() {
  Tables tables;
  tables.users = ReadUsers(true);
  tables.users_error = TakeError();
  tables.groups = Groups();
  tables.groups_error = TakeError();
  return tables;
}

template <class Row>
Outcome WinbindSource::FindOne(const Ask& ask, Row (*make)(const std::vector<std::string>&),
                               Row& row) {
  bool found = false;
  std::string error;
  const auto take = [&](const Answer& answer) {
    if (answer.kind != winbind::kUnknown) {
      row = make(answer.texts);
      found = true;
    }
  };
  if (!Run(ask, take, error)) {
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

Outcome WinbindSource::FindUser(const std::string& name, UserRow& row) {
  const std::string asked = ShortName(name);
  return FindOne([&](const AnswerWriter& out) { winbind::AskUser(domain_, asked, out); }, MakeUser,
                 row);
}

Outcome WinbindSource::FindUserById(unsigned int uid, UserRow& row) {
  return FindOne([&](const AnswerWriter& out) { winbind::AskUid(domain_, uid, out); }, MakeUser,
                 row);
}

Outcome WinbindSource::FindGroup(const std::string& name, GroupRow& row) {
  const std::string asked = ShortName(name);
  return FindOne([&](const AnswerWriter& out) { winbind::AskGroup(domain_, asked, out); },
                 MakeGroup, row);
}

Outcome WinbindSource::FindGroupById(unsigned int gid, GroupRow& row) {
  return FindOne([&](const AnswerWriter& out) { winbind::AskGid(domain_, gid, out); }, MakeGroup,
                 row);
}

void WinbindSource::Check(std::vector<AccountCheckStep>& steps) {
  const auto step = [&](const char* name, const Ask& ask) {
    AccountCheckStep made = {name, false, {}};
    std::string error;
    made.ok = Run(
        ask, [&](const Answer& answer) { made.detail = answer.texts.at(0); }, error);
    made.detail = made.ok ? made.detail : error;
    steps.push_back(made);
    return made.ok;
  };
  step("connect", winbind::AskDaemon) &&
      step("bind", [&](const AnswerWriter& out) { winbind::AskController(domain_, out); });
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
