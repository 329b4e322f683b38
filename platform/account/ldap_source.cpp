// Accounts of an LDAP directory, as [ldap] of the host settings describes it: posixAccount and
// posixGroup entries, members by name (rfc2307) or by DN (rfc2307bis, with nested groups).
//
// A session stays open between look-ups. An entry that cannot be read leaves a gap in the table;
// the server's result codes tell whether the answer is whole.
#include "platform/account/account_field.h"
#include "platform/account/source.h"
#include "platform/directory/session.h"
#include "platform/directory/text.h"
#include "platform/system/fold_case.h"

namespace korvmailserver::account {

namespace {

using directory::Entry;
using directory::Search;
using directory::SearchQuery;
using directory::Session;

// The attribute's first value that is text; empty when there is none.
std::string Text(const Entry& entry, const std::string& attribute) {
  const std::string* value = entry.First(FoldCase(attribute));
  return value == nullptr ? std::string() : *value;
}

class LdapSource : public Source {
 public:
  explicit LdapSource(std::string domain) : domain_(std::move(domain)) {}

  std::shared_ptr<const UserTable> Users() override { return ReadAllOf<UserTable>(); }
  std::shared_ptr<const GroupTable> Groups() override { return ReadAllOf<GroupTable>(); }
  Tables ReadAll() override;
  Outcome Find(const std::string& name, UserRow& row) override;
  Outcome Find(const std::string& name, GroupRow& row) override;
  Outcome FindById(unsigned int uid, UserRow& row) override;
  Outcome FindById(unsigned int gid, GroupRow& row) override;
  std::string FullName(const std::string& short_name) const override;
  bool MayBeInternal(const std::string& /*name*/) const override { return false; }
  void Check(std::vector<AccountCheckStep>& steps) override;

 private:
  // Each step of Open fails with its own text.
  bool Configure();
  bool Connect();
  bool Bind();
  bool Open();

  // What users and groups differ in: what is asked for, and how an entry becomes a row.
  SearchQuery QueryFor(const UserTable& users) const;
  SearchQuery QueryFor(const GroupTable& groups) const;
  void AddEntry(const Entry& entry, UserTable& users) const;
  void AddEntry(const Entry& entry, GroupTable& groups) const;
  std::string MemberAttribute() const;
  void TakeMembers(const Entry& entry, GroupRow& group) const;

  // Runs a search and adds its entries to `table`. False and `error`: not all of them came.
  template <class AnyTable>
  bool Run(const SearchQuery& query, AnyTable& table, std::string& error);
  // LDAP's code of the search.
  template <class AnyTable>
  int RunOnce(const SearchQuery& query, AnyTable& table, size_t& came, std::string& error);
  template <class AnyTable>
  std::shared_ptr<const AnyTable> ReadAllOf();
  // The entries whose `attribute` is `value`, in a table; null when the search failed.
  template <class AnyTable>
  std::shared_ptr<const AnyTable> Select(std::string LdapSettings::*attribute,
                                         const std::string& value);
  std::string ShortName(const std::string& full_name) const;

  std::string domain_;
  LdapSettings settings_;
  std::unique_ptr<Session> session_;
  bool reused_ = false;     // the session may have been closed by the server since
  bool timed_out_ = false;  // the last search
};

bool LdapSource::Configure() {
  std::string error;
  if (!directory::ReadLdapSettings(settings_, error)) {
    Fail(error);
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
  if (reused_) {
    session_->Renew();
  }
  return reused_ || (Configure() && Connect() && Bind());
}

SearchQuery LdapSource::QueryFor(const UserTable& /*users*/) const {
  return {settings_.user_base,
          settings_.user_filter,
          {settings_.user_name_attr, settings_.user_id_attr, settings_.user_gid_attr,
           settings_.user_mail_attr, settings_.user_full_name_attr},
          settings_.page_size};
}

SearchQuery LdapSource::QueryFor(const GroupTable& /*groups*/) const {
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

void LdapSource::AddEntry(const Entry& entry, UserTable& users) const {
  UserRow user;
  ParseId(Text(entry, settings_.user_gid_attr), user.gid);
  const std::string name = Text(entry, settings_.user_name_attr);
  if (!IsAccountName(name)) {
    users.Skip("\"" + entry.dn + "\" has no usable " + settings_.user_name_attr, "", user.gid);
    return;
  }
  user.name = FullName(name);
  if (!ParseId(Text(entry, settings_.user_id_attr), user.uid)) {
    users.Skip("\"" + entry.dn + "\" has no number as " + settings_.user_id_attr, user.name,
               user.gid);
    return;
  }
  user.mail = Text(entry, settings_.user_mail_attr);
  user.full_name = Text(entry, settings_.user_full_name_attr);
  user.key = directory::FoldDn(entry.dn);
  users.Add(std::move(user));
}

void LdapSource::AddEntry(const Entry& entry, GroupTable& groups) const {
  GroupRow group;
  const std::string name = Text(entry, settings_.group_name_attr);
  if (!IsAccountName(name)) {
    groups.Skip("\"" + entry.dn + "\" has no usable " + settings_.group_name_attr, "");
    return;
  }
  group.name = FullName(name);
  if (!ParseId(Text(entry, settings_.group_id_attr), group.gid)) {
    groups.Skip("\"" + entry.dn + "\" has no number as " + settings_.group_id_attr, group.name);
    return;
  }
  const std::string ranged = FoldCase(MemberAttribute()) + ";range=";
  const auto partial = entry.values.lower_bound(ranged);
  if (partial != entry.values.end() && partial->first.compare(0, ranged.size(), ranged) == 0) {
    groups.Skip("the server tells only a part of the members of \"" + entry.dn + "\"", group.name);
    return;
  }
  group.description = Text(entry, settings_.group_desc_attr);
  group.key = directory::FoldDn(entry.dn);
  TakeMembers(entry, group);
  groups.Add(std::move(group));
}

void LdapSource::TakeMembers(const Entry& entry, GroupRow& group) const {
  const auto members = entry.values.find(FoldCase(MemberAttribute()));
  if (members == entry.values.end()) {
    return;
  }
  for (const std::string& member : members->second) {
    if (settings_.schema == "rfc2307bis") {
      group.member_keys.push_back(directory::FoldDn(member));
    } else if (IsAccountName(member)) {
      group.members.push_back(FullName(member));
    }
  }
}

template <class AnyTable>
int LdapSource::RunOnce(const SearchQuery& query, AnyTable& table, size_t& came,
                        std::string& error) {
  Search search(*session_, query);
  const Entry* entry = nullptr;
  for (came = 0; search.Next(entry) > 0; came++) {
    AddEntry(*entry, table);
  }
  error = search.error();
  return search.code();
}

template <class AnyTable>
bool LdapSource::Run(const SearchQuery& query, AnyTable& table, std::string& error) {
  size_t came = 0;
  int code = RunOnce(query, table, came, error);
  if (code == LDAP_SERVER_DOWN && came == 0 && reused_) {
    session_.reset();
    if (!Open()) {
      error = TakeError();
      return false;
    }
    code = RunOnce(query, table, came, error);
  }
  timed_out_ = code == LDAP_TIMEOUT;
  if (code != LDAP_SUCCESS) {
    session_.reset();
  }
  return code == LDAP_SUCCESS;
}

template <class AnyTable>
std::shared_ptr<const AnyTable> LdapSource::ReadAllOf() {
  if (!Open()) {
    return nullptr;
  }
  const auto table = std::make_shared<AnyTable>(NameCase::kFolded);
  std::string error;
  const bool whole = Run(QueryFor(*table), *table, error);
  return Conclude(table, whole, error, settings_.uri);
}

// A server that let the users wait is not asked for the groups at the same price.
Tables LdapSource::ReadAll() {
  Tables tables;
  tables.users = Users();
  tables.users_error = TakeError();
  if (tables.users == nullptr || timed_out_) {
    tables.groups_error = "the groups are not asked for after the users: " +
                          (tables.users == nullptr ? tables.users_error : tables.users->gaps().why);
    return tables;
  }
  tables.groups = Groups();
  tables.groups_error = TakeError();
  return tables;
}

template <class AnyTable>
std::shared_ptr<const AnyTable> LdapSource::Select(std::string LdapSettings::*attribute,
                                                   const std::string& value) {
  if (!Open()) {
    return nullptr;
  }
  auto table = std::make_shared<AnyTable>(NameCase::kFolded);
  SearchQuery query = QueryFor(*table);
  query.filter = directory::Both(query.filter, directory::Equals(settings_.*attribute, value));
  std::string error;
  if (!Run(query, *table, error)) {
    Fail(error);
    return nullptr;
  }
  return table;
}

Outcome LdapSource::Find(const std::string& name, UserRow& row) {
  return PickByName(Select<UserTable>(&LdapSettings::user_name_attr, ShortName(name)),
                    FullName(name), row);
}

Outcome LdapSource::Find(const std::string& name, GroupRow& row) {
  return PickByName(Select<GroupTable>(&LdapSettings::group_name_attr, ShortName(name)),
                    FullName(name), row);
}

Outcome LdapSource::FindById(unsigned int uid, UserRow& row) {
  return PickById(Select<UserTable>(&LdapSettings::user_id_attr, std::to_string(uid)), uid, row);
}

Outcome LdapSource::FindById(unsigned int gid, GroupRow& row) {
  return PickById(Select<GroupTable>(&LdapSettings::group_id_attr, std::to_string(gid)), gid, row);
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
