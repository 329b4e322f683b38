// Mirrored accounts by what a person calls them.
#include <algorithm>

#include "lib-domain/base/text.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/user.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/session/access.h"
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

}  // namespace

Result<std::optional<Account>> Session::FindAccount(const std::string& text) const {
  return Read<std::optional<Account>>(*this, [&] { return Find<UserKind>(text); });
}

Result<std::optional<Account>> Session::FindAccountGroup(const std::string& text) const {
  return Read<std::optional<Account>>(*this, [&] { return Find<GroupKind>(text); });
}

}  // namespace mdomain
