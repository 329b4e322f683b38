// Mirrored accounts and groups: by what a person calls them, and all of them.
#include <algorithm>
#include <map>
#include <unordered_map>

#include "lib-domain/api/group.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/pages.h"
#include "platform/include/account.h"

namespace mdomain {

using session::Fail;
using session::Read;
using session::Refuse;

namespace {

struct UserKind {
  using Record = MDOMAIN::RECORD::User;
  using Filter = MDOMAIN::DB::UserDBFilter;
  using Store = MDOMAIN::CONTROL::User;
  static constexpr const char* kKind = "user";
  static Account AccountOf(const Record& user) { return {user.GetUID(), user.GetUserName()}; }
  static void Choose(unsigned int uid, Filter& filter) { filter.SetUIDs({uid}); }
};

struct GroupKind {
  using Record = MDOMAIN::RECORD::Group;
  using Filter = MDOMAIN::DB::GroupDBFilter;
  using Store = MDOMAIN::CONTROL::Group;
  static constexpr const char* kKind = "group";
  static Account AccountOf(const Record& group) { return {group.GetGID(), group.GetGroupName()}; }
  static void Choose(unsigned int gid, Filter& filter) { filter.SetGIDs({gid}); }
};

template <typename Kind>
std::vector<Account> Candidates(const std::string& text) {
  std::vector<typename Kind::Record> records;
  bool is_read = MDOMAIN::DB::INTERNAL::ListNamed({text}, records);
  unsigned int id = 0;
  if (is_read && records.empty() && MDOMAIN::BASE::ConvertToUID(text, id)) {
    typename Kind::Filter filter;
    Kind::Choose(id, filter);
    is_read = typename Kind::Store().List(filter, records);
  }
  if (!is_read) {
    Fail(std::string("the ") + Kind::kKind + "s could not be read");
  }
  std::vector<Account> accounts;
  std::transform(records.begin(), records.end(), std::back_inserter(accounts), Kind::AccountOf);
  return accounts;
}

// The exact spelling wins over one that differs in letter case, a full name over a short one, both
// over an id.
template <typename Kind>
std::optional<Account> Find(const std::string& text) {
  const std::vector<Account> candidates = Candidates<Kind>(text);
  const std::string folded = FoldAccountName(text);
  const std::function<bool(const Account&)> ways[] = {
      [&](const Account& account) { return account.name == text; },
      [&](const Account& account) { return TrimDomainName(account.name) == text; },
      [&](const Account& account) { return FoldAccountName(account.name) == folded; },
      [&](const Account& account) {
        return FoldAccountName(TrimDomainName(account.name)) == folded;
      },
      [&](const Account& account) { return std::to_string(account.id) == text; },
  };
  for (const auto& is_meant : ways) {
    const auto found = std::find_if(candidates.begin(), candidates.end(), is_meant);
    if (found == candidates.end()) {
      continue;
    }
    if (std::any_of(std::next(found), candidates.end(), is_meant)) {
      Refuse(Reason::kRefused, "\"" + text + "\" could mean several " + Kind::kKind + "s",
             "give the full name or the number");
    }
    return *found;
  }
  return std::nullopt;
}

template <typename Kind>
Page<Account> PageOf(const AccountQuery& query, const session::PlaceInList& place) {
  typename Kind::Filter filter;
  filter.SetLiteralQuery(query.text);
  if (query.id) {
    Kind::Choose(*query.id, filter);
  }
  filter.SetLimit(place.limit());
  filter.SetOffset(place.offset());
  std::vector<typename Kind::Record> records;
  int total = 0;
  if (!MDOMAIN::DB::INTERNAL::CountMirrored(filter, total) ||
      !typename Kind::Store().List(filter, records)) {
    Fail(std::string("the ") + Kind::kKind + "s could not be read");
  }
  Page<Account> page;
  std::transform(records.begin(), records.end(), std::back_inserter(page.items), Kind::AccountOf);
  place.End(static_cast<std::size_t>(total), page);
  return page;
}

std::vector<std::uint32_t> MembersOf(std::uint32_t gid) {
  std::vector<std::uint32_t> uids;
  if (!MDOMAIN::API::Group().ListGroupToUsers(gid, uids)) {
    Fail("the members of the group could not be read");
  }
  return uids;
}

Page<Account> MembersPage(const AccountQuery& query, const session::PlaceInList& place) {
  session::GroupsOf({*query.gid});
  std::unordered_map<unsigned int, std::string> names;
  const std::vector<std::uint32_t> uids = MembersOf(*query.gid);
  if (!uids.empty() && !MDOMAIN::CONTROL::User().GetNames(uids, names)) {
    Fail("the users could not be read");
  }
  const std::string wanted = MDOMAIN::BASE::ToLowerAscii(query.text);
  std::map<std::uint32_t, std::string> members;
  for (const auto& [uid, name] : names) {
    if (query.id.value_or(uid) == uid &&
        MDOMAIN::BASE::ToLowerAscii(name).find(wanted) != std::string::npos) {
      members.emplace(uid, name);
    }
  }
  Page<Account> page;
  int at = 0;
  for (const auto& [uid, name] : members) {
    if (at >= place.offset() && at - place.offset() < place.limit()) {
      page.items.push_back({uid, name});
    }
    ++at;
  }
  place.End(members.size(), page);
  return page;
}

// Whoever has no domain has nobody to bring anywhere.
bool MayBringIn(const Session& session) {
  const auto& administrator = SessionAccess::StateOf(session).administrator;
  return !administrator || session::IsAnyDomainOf(*administrator);
}

}  // namespace

Result<Page<Account>> Session::ListAccounts(const AccountQuery& query,
                                            const std::string& cursor) const {
  return session::ReadModel<Page<Account>>(*this, [&] {
    const session::PlaceInList place(query.page_size, cursor);
    return !MayBringIn(*this) ? Page<Account>()
           : query.gid        ? MembersPage(query, place)
                              : PageOf<UserKind>(query, place);
  });
}

Result<Page<Account>> Session::ListAccountGroups(const AccountQuery& query,
                                                 const std::string& cursor) const {
  return session::ReadModel<Page<Account>>(*this, [&] {
    const session::PlaceInList place(query.page_size, cursor);
    if (query.gid) {
      Refuse(Reason::kInvalid, "groups have no groups as members");
    }
    return MayBringIn(*this) ? PageOf<GroupKind>(query, place) : Page<Account>();
  });
}

Result<AccountGroup> Session::ExplainGroup(std::uint32_t gid) const {
  return session::ReadModel<AccountGroup>(*this, [&] {
    if (!MayBringIn(*this)) {
      Refuse(Reason::kNotFound, "no group has the number " + std::to_string(gid));
    }
    const MDOMAIN::RECORD::Group record = session::GroupsOf({gid}).front();
    AccountGroup group{
        gid, record.GetGroupName(), record.GetGroupDesc(), MembersOf(gid).size(), {}};
    std::map<int, std::string> role_by_domain;
    if (!MDOMAIN::DB::INTERNAL::ListRolesOfGroup(gid, role_by_domain)) {
      Fail("the domains of the group could not be read");
    }
    for (const session::Known& domain : session::KnownDomains(*this)) {
      const std::string role = role_by_domain[domain.idx];
      if (!role.empty()) {
        group.domains.push_back({{domain.idx, domain.name}, session::RoleOf(role)});
      }
    }
    return group;
  });
}

Result<std::optional<Account>> Session::FindAccount(const std::string& text) const {
  return Read<std::optional<Account>>(
      *this, [&] { return MayBringIn(*this) ? Find<UserKind>(text) : std::nullopt; });
}

Result<std::optional<Account>> Session::FindAccountGroup(const std::string& text) const {
  return Read<std::optional<Account>>(
      *this, [&] { return MayBringIn(*this) ? Find<GroupKind>(text) : std::nullopt; });
}

}  // namespace mdomain
