// Accounts of an LDAP directory, as [ldap] of the host settings describes it: posixAccount and
// posixGroup entries, members by name (rfc2307) or by DN (rfc2307bis, with nested groups).
//
// A session stays open between look-ups. What the entries lack is a gap of the table; what the
// server's result codes say decides whether the answer is whole.
#include <algorithm>

#include "platform/account/source.h"
#include "platform/directory/session.h"
#include "platform/include/root_path.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

namespace {

using directory::Entry;
using directory::Search;
using directory::SearchQuery;
using directory::Session;

constexpr size_t kMaxNameBytes = 255;

std::string Lower(const std::string& attribute) {
  return FoldCase(attribute);
}

// Decimal digits below the id that means "unknown".
bool ParseId(const std::string* text, unsigned int& id) {
  if (text == nullptr || text->empty() || text->size() > 10 ||
      text->find_first_not_of("0123456789") != std::string::npos ||
      std::stoull(*text) >= KORV_UNKNOWN_ID) {
    return false;
  }
  id = static_cast<unsigned int>(std::stoull(*text));
  return true;
}

bool IsName(const std::string* name) {
  return name != nullptr && !name->empty() && directory::IsText(*name) &&
         name->size() <= kMaxNameBytes && std::none_of(name->begin(), name->end(), [](char c) {
           const auto byte = static_cast<unsigned char>(c);
           return byte < 0x20 || byte == 0x7F;
         });
}

std::string OrEmpty(const std::string* text) {
  return text == nullptr ? std::string() : *text;
}

class LdapSource : public Source {
 public:
  explicit LdapSource(std::string domain) : domain_(std::move(domain)) {}

  std::shared_ptr<const UserTable> Users() override;
  std::shared_ptr<const GroupTable> Groups() override;
  Outcome FindUser(const std::string& name, UserRow& row) override;
  Outcome FindUserById(unsigned int uid, UserRow& row) override;
  Outcome FindGroup(const std::string& name, GroupRow& row) override;
  Outcome FindGroupById(unsigned int gid, GroupRow& row) override;
  std::string FullName(const std::string& short_name) const override;
  bool MayBeInternal(const std::string& /*name*/) const override { return false; }
  void Check(std::vector<AccountCheckStep>& steps) override;

 private:
  // Reads the settings and says what they lack.
  bool Configure();
  bool Connect();
  bool Bind();
  bool Open();

  SearchQuery UserQuery() const;
  SearchQuery GroupQuery() const;
  std::string MemberAttribute() const;
  void AddUser(const Entry& entry, UserTable& users) const;
  void AddGroup(const Entry& entry, GroupTable& groups) const;
  void TakeMembers(const Entry& entry, GroupRow& group) const;

  // Runs a search and gives every entry to `add`. False and `error`: not all of it came.
  template <class Add>
  bool Run(const SearchQuery& query, const Add& add, std::string& error);
  // LDAP's code of the search.
  template <class Add>
  int RunOnce(const SearchQuery& query, const Add& add, size_t& came, std::string& error);
  template <class Table, class Add>
  std::shared_ptr<const Table> ReadTable(const SearchQuery& query, const Add& add,
                                         const std::shared_ptr<Table>& table);
  // The entries whose `attribute` is `value`, in a table; null when the search failed.
  std::shared_ptr<UserTable> SearchUsers(std::string LdapSettings::*attribute,
                                         const std::string& value);
  std::shared_ptr<GroupTable> SearchGroups(std::string LdapSettings::*attribute,
                                           const std::string& value);
  std::string ShortName(const std::string& full_name) const;

  std::string domain_;
  LdapSettings settings_;
  std::unique_ptr<Session> session_;
  bool reused_ = false;  // the session may have been closed by the server since
};

bool LdapSource::Configure() {
  HostSettings settings;
  std::string error;
  if (!ReadHostSettings(settings, error)) {
    Fail(error);
    return false;
  }
  settings_ = settings.ldap;
  if (settings_.uri.empty()) {
    Fail(HostSettingsPath() + ": uri is missing in [ldap]");
    return false;
  }
  return true;
}

bool LdapSource::Connect() {
  auto session = std::make_unique<Session>();
  std::string error;
  if (!session->Connect(settings_, error)) {
    Fail(error);
    return false;
  }
  session_ = std::move(session);
  return true;
}

bool LdapSource::Bind() {
  std::string error;
  if (!session_->Bind(settings_, error)) {
    session_.reset();
    Fail(error);
    return false;
  }
  return true;
}

bool LdapSource::Open() {
  reused_ = session_ != nullptr;
  return reused_ || (Configure() && Connect() && Bind());
}

SearchQuery LdapSource::UserQuery() const {
  return {settings_.user_base,
          settings_.user_filter,
          {settings_.user_name_attr, settings_.user_id_attr, settings_.user_gid_attr,
           settings_.user_mail_attr, settings_.user_full_name_attr},
          settings_.page_size};
}

SearchQuery LdapSource::GroupQuery() const {
  return {settings_.group_base,
          settings_.group_filter,
          {settings_.group_name_attr, settings_.group_id_attr, settings_.group_desc_attr,
           MemberAttribute()},
          settings_.page_size};
}

std::string LdapSource::MemberAttribute() const {
  if (!settings_.member_attr.empty()) {
    return settings_.member_attr;
  }
  return settings_.schema == "rfc2307bis" ? "member" : "memberUid";
}

std::string LdapSource::FullName(const std::string& short_name) const {
  const bool full = domain_.empty() || short_name.find('@') != std::string::npos;
  return full ? short_name : short_name + "@" + domain_;
}

std::string LdapSource::ShortName(const std::string& full_name) const {
  const std::string suffix = "@" + FoldCase(domain_);
  const bool ours = suffix.size() > 1 && full_name.size() > suffix.size() &&
                    FoldCase(full_name.substr(full_name.size() - suffix.size())) == suffix;
  return ours ? full_name.substr(0, full_name.size() - suffix.size()) : full_name;
}

void LdapSource::AddUser(const Entry& entry, UserTable& users) const {
  UserRow user;
  ParseId(entry.First(Lower(settings_.user_gid_attr)), user.gid);
  const std::string* name = entry.First(Lower(settings_.user_name_attr));
  if (!IsName(name)) {
    users.Skip("\"" + entry.dn + "\" has no usable " + settings_.user_name_attr, "", user.gid);
    return;
  }
  user.name = FullName(*name);
  if (!ParseId(entry.First(Lower(settings_.user_id_attr)), user.uid)) {
    users.Skip("\"" + entry.dn + "\" has no number as " + settings_.user_id_attr, user.name,
               user.gid);
    return;
  }
  user.mail = OrEmpty(entry.First(Lower(settings_.user_mail_attr)));
  user.full_name = OrEmpty(entry.First(Lower(settings_.user_full_name_attr)));
  user.key = directory::FoldDn(entry.dn);
  users.Add(std::move(user));
}

void LdapSource::AddGroup(const Entry& entry, GroupTable& groups) const {
  GroupRow group;
  const std::string* name = entry.First(Lower(settings_.group_name_attr));
  if (!IsName(name)) {
    groups.Skip("\"" + entry.dn + "\" has no usable " + settings_.group_name_attr, "");
    return;
  }
  group.name = FullName(*name);
  if (!ParseId(entry.First(Lower(settings_.group_id_attr)), group.gid)) {
    groups.Skip("\"" + entry.dn + "\" has no number as " + settings_.group_id_attr, group.name);
    return;
  }
  const std::string ranged = Lower(MemberAttribute()) + ";range=";
  const auto partial = entry.values.lower_bound(ranged);
  if (partial != entry.values.end() && partial->first.compare(0, ranged.size(), ranged) == 0) {
    groups.Skip("the server tells only a part of the members of \"" + entry.dn + "\"", group.name);
    return;
  }
  group.description = OrEmpty(entry.First(Lower(settings_.group_desc_attr)));
  group.key = directory::FoldDn(entry.dn);
  TakeMembers(entry, group);
  groups.Add(std::move(group));
}

void LdapSource::TakeMembers(const Entry& entry, GroupRow& group) const {
  const auto members = entry.values.find(Lower(MemberAttribute()));
  if (members == entry.values.end()) {
    return;
  }
  for (const std::string& member : members->second) {
    if (settings_.schema == "rfc2307bis") {
      group.member_keys.push_back(directory::FoldDn(member));
    } else if (IsName(&member)) {
      group.members.push_back(FullName(member));
    }
  }
}

template <class Add>
int LdapSource::RunOnce(const SearchQuery& query, const Add& add, size_t& came,
                        std::string& error) {
  Search search(*session_, query);
  const Entry* entry = nullptr;
  for (came = 0; search.Next(entry) > 0; came++) {
    add(*entry);
  }
  error = search.error();
  return search.code();
}

template <class Add>
bool LdapSource::Run(const SearchQuery& query, const Add& add, std::string& error) {
  size_t came = 0;
  int code = RunOnce(query, add, came, error);
  if (code == LDAP_SERVER_DOWN && came == 0 && reused_) {
    session_.reset();
    if (!Open()) {
      error = TakeError();
      return false;
    }
    code = RunOnce(query, add, came, error);
  }
  if (code != LDAP_SUCCESS) {
    session_.reset();
  }
  return code == LDAP_SUCCESS;
}

template <class Table, class Add>
std::shared_ptr<const Table> LdapSource::ReadTable(const SearchQuery& query, const Add& add,
                                                   const std::shared_ptr<Table>& table) {
  std::string error;
  if (!Run(query, add, error)) {
    if (table->rows().empty()) {
      Fail(error);
      return nullptr;
    }
    table->CutShort(error);
  }
  table->Announce(settings_.uri);
  return table;
}

std::shared_ptr<const UserTable> LdapSource::Users() {
  if (!Open()) {
    return nullptr;
  }
  const auto users = std::make_shared<UserTable>(NameCase::kFolded);
  auto table = ReadTable(
      UserQuery(), [&](const Entry& e) { AddUser(e, *users); }, users);
  users->IndexGroups();
  return table;
}

std::shared_ptr<const GroupTable> LdapSource::Groups() {
  if (!Open()) {
    return nullptr;
  }
  const auto groups = std::make_shared<GroupTable>(NameCase::kFolded);
  return ReadTable(
      GroupQuery(), [&](const Entry& e) { AddGroup(e, *groups); }, groups);
}

std::shared_ptr<UserTable> LdapSource::SearchUsers(std::string LdapSettings::*attribute,
                                                   const std::string& value) {
  if (!Open()) {
    return nullptr;
  }
  SearchQuery query = UserQuery();
  query.filter = directory::Both(query.filter, directory::Equals(settings_.*attribute, value));
  auto users = std::make_shared<UserTable>(NameCase::kFolded);
  std::string error;
  if (!Run(
          query, [&](const Entry& entry) { AddUser(entry, *users); }, error)) {
    Fail(error);
    return nullptr;
  }
  return users;
}

std::shared_ptr<GroupTable> LdapSource::SearchGroups(std::string LdapSettings::*attribute,
                                                     const std::string& value) {
  if (!Open()) {
    return nullptr;
  }
  SearchQuery query = GroupQuery();
  query.filter = directory::Both(query.filter, directory::Equals(settings_.*attribute, value));
  auto groups = std::make_shared<GroupTable>(NameCase::kFolded);
  std::string error;
  if (!Run(
          query, [&](const Entry& entry) { AddGroup(entry, *groups); }, error)) {
    Fail(error);
    return nullptr;
  }
  return groups;
}

Outcome LdapSource::FindUser(const std::string& name, UserRow& row) {
  const auto users = SearchUsers(&LdapSettings::user_name_attr, ShortName(name));
  return users == nullptr ? Outcome::kFailed : Pick(users->ByName(FullName(name)), row);
}

Outcome LdapSource::FindUserById(unsigned int uid, UserRow& row) {
  const auto users = SearchUsers(&LdapSettings::user_id_attr, std::to_string(uid));
  return users == nullptr ? Outcome::kFailed : Pick(users->ById(uid), row);
}

Outcome LdapSource::FindGroup(const std::string& name, GroupRow& row) {
  const auto groups = SearchGroups(&LdapSettings::group_name_attr, ShortName(name));
  return groups == nullptr ? Outcome::kFailed : Pick(groups->ByName(FullName(name)), row);
}

Outcome LdapSource::FindGroupById(unsigned int gid, GroupRow& row) {
  const auto groups = SearchGroups(&LdapSettings::group_id_attr, std::to_string(gid));
  return groups == nullptr ? Outcome::kFailed : Pick(groups->ById(gid), row);
}

void LdapSource::Check(std::vector<AccountCheckStep>& steps) {
  session_.reset();
  bool ok = Configure() && Connect();
  steps.push_back({"connect", ok, ok ? settings_.uri : TakeError()});
  if (ok) {
    ok = Bind();
    const std::string who = settings_.bind_dn.empty() ? "anonymous" : settings_.bind_dn;
    steps.push_back({"bind", ok, ok ? who : TakeError()});
  }
}

}  // namespace

std::shared_ptr<Source> MakeLdapSource(const std::string& domain) {
  return std::make_shared<LdapSource>(domain);
}

}  // namespace korvmailserver::account
