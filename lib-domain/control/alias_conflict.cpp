// The collision rules over an index made for the call, and the composing of records from mirrored
// users.
#include "lib-domain/control/alias_conflict.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/alias_index.h"
#include "lib-domain/control/mirrored_names.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/account.h"
#include "platform/include/hash_index.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

using korvmailserver::HashIndex;
using AliasPairs = std::vector<std::pair<std::string, bool>>;

template <typename Record>
AliasIndex IndexOf(const std::vector<Record>& records) {
  AliasIndex index;
  index.Add(records);
  return index;
}

}  // namespace

void _CheckAndSetDomainUserAliasDuplicated(const std::vector<RECORD::DomainUserAlias>& existing,
                                           RECORD::DomainUserAlias& candidate,
                                           bool& same_user_has_it) {
  if (FlagCandidate(IndexOf(existing), candidate)) {
    same_user_has_it = true;
  }
}

void _CheckAndSetDomainUsersAliasesDuplicated(const std::vector<RECORD::DomainUserAlias>& existing,
                                              std::vector<RECORD::DomainUserAlias>& candidates) {
  DropOwnAndFlagOthers(IndexOf(existing), candidates);
}

void _CheckAndEraseDupAlias(std::vector<RECORD::DomainUserAlias>& aliases) {
  const auto equal = [](const RECORD::DomainUserAlias& a, const RECORD::DomainUserAlias& b) {
    return BASE::EqualsIgnoreCase(a.GetAccountAlias(), b.GetAccountAlias());
  };
  aliases.erase(std::unique(aliases.begin(), aliases.end(), equal), aliases.end());
}

bool _CheckAndSetAliasDuplicatedPairs(const std::vector<RECORD::DomainUser>& others,
                                      const bool& skip_same_uid, RECORD::DomainUser& target,
                                      bool& any_duplicated) {
  any_duplicated = FlagPairs(IndexOf(others), skip_same_uid, target);
  return true;
}

bool _CheckAndSetConflictingAccountNames(const std::vector<RECORD::DomainUser>& others,
                                         const bool& skip_same_uid, RECORD::DomainUser& target) {
  return SetConflictingNames(AccountNameIndex(others), skip_same_uid, target);
}

bool _CompareDomainUserByAccountAlias(const RECORD::DomainUser& a, const RECORD::DomainUser& b) {
  const AliasPairs pairs_a = a.GetAliasDuplicatedPairs();
  const AliasPairs pairs_b = b.GetAliasDuplicatedPairs();
  if (pairs_a.empty() || pairs_b.empty()) {
    return pairs_a.empty() && !pairs_b.empty();
  }
  return pairs_a.front().first < pairs_b.front().first;
}

bool _CompareDomainUserByIsDuplicated(const RECORD::DomainUser& a, const RECORD::DomainUser& b) {
  const AliasPairs pairs_a = a.GetAliasDuplicatedPairs();
  const AliasPairs pairs_b = b.GetAliasDuplicatedPairs();
  const bool flagged_a = !pairs_a.empty() && pairs_a.front().second;
  const bool flagged_b = !pairs_b.empty() && pairs_b.front().second;
  return flagged_a && !flagged_b;
}

void _ComposeDomainUsersRolesFromUsers(const int& domain_idx,
                                       const std::vector<RECORD::User>& users,
                                       const bool& is_auto_added,
                                       std::vector<RECORD::DomainUserRole>& roles) {
  for (const RECORD::User& user : users) {
    roles.emplace_back(domain_idx, user.GetUID(), "normal", is_auto_added);
  }
}

void _GetUsersFromUserShortNames(const std::vector<std::string>& short_names,
                                 std::vector<RECORD::User>& users) {
  TryGetUsersFromUserShortNames(short_names, users);
}

bool TryGetUsersFromUserShortNames(const std::vector<std::string>& short_names,
                                   std::vector<RECORD::User>& users) {
  if (short_names.empty()) {
    return true;
  }
  std::vector<RECORD::User> mirrored;
  if (!DB::INTERNAL::ListNamed(short_names, mirrored)) {
    LOG_ERROR("Failed to list users, skip _GetUsersFromUserShortNames");
    return false;
  }
  HashIndex by_short_name;
  by_short_name.Reserve(mirrored.size());
  const auto called = [&mirrored](const std::string& short_name) {
    return [&mirrored, &short_name](uint32_t number) {
      return TrimDomainName(mirrored[number].GetUserName()) == short_name;
    };
  };
  for (size_t i = 0; i < mirrored.size(); ++i) {
    const std::string short_name = TrimDomainName(mirrored[i].GetUserName());
    by_short_name.FindOrAdd(HashIndex::HashOf(short_name), static_cast<uint32_t>(i),
                            called(short_name));
  }
  std::vector<const RECORD::User*> found;
  std::vector<std::string> names;
  for (const std::string& short_name : short_names) {
    const uint32_t number = by_short_name.Find(HashIndex::HashOf(short_name), called(short_name));
    if (number != HashIndex::kNone) {
      found.push_back(&mirrored[number]);
      names.push_back(mirrored[number].GetUserName());
    }
  }
  const korvmailserver::FewAccounts accounts;
  korvmailserver::FewAccounts::Expect(names);
  for (const RECORD::User* user : found) {
    if (!KORVUserIsInternal(user->GetUserName().c_str())) {
      users.push_back(*user);
    }
  }
  return true;
}

void _GetDomainUsersFromUsersAndFetchedAlaises(
    const int& domain_idx, const std::vector<RECORD::User>& users,
    const std::map<std::string, std::string>& fetched_aliases,
    std::vector<RECORD::DomainUser>& domain_users) {
  domain_users.reserve(domain_users.size() + users.size());
  auto next = fetched_aliases.begin();  // users mostly come in the same order
  for (const RECORD::User& user : users) {
    const std::string short_name = TrimDomainName(user.GetUserName());
    std::string alias = short_name;
    const auto fetched = next != fetched_aliases.end() && next->first == short_name
                             ? next
                             : fetched_aliases.find(short_name);
    if (fetched != fetched_aliases.end()) {
      alias = fetched->second;
      next = std::next(fetched);
    } else {
      LOG_ERROR("Failed to find email address for [%s], use Zelm account name instead",
                user.GetUserName().c_str());
    }
    domain_users.emplace_back(domain_idx, user.GetUID(), user.GetUserName(),
                              AliasPairs{{alias, false}}, "normal");
  }
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
