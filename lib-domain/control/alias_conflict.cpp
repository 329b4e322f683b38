// The collision rules, one compared with each, and the composing of records from mirrored users.
#include "lib-domain/control/alias_conflict.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/db/user.h"
#include "platform/include/account.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

using BASE::EqualsIgnoreCase;
using AliasPairs = std::vector<std::pair<std::string, bool>>;

bool IsComparable(const RECORD::DomainUser& other, const RECORD::DomainUser& target,
                  bool skip_same_uid) {
  return other.GetDomainIdx() == target.GetDomainIdx() &&
         !(skip_same_uid && other.GetUID() == target.GetUID());
}

bool HasAlias(const RECORD::DomainUser& user, const std::string& alias) {
  const AliasPairs pairs = user.GetAliasDuplicatedPairs();
  return std::any_of(pairs.begin(), pairs.end(), [&alias](const AliasPairs::value_type& pair) {
    return EqualsIgnoreCase(pair.first, alias);
  });
}

}  // namespace

void _CheckAndSetDomainUserAliasDuplicated(const std::vector<RECORD::DomainUserAlias>& existing,
                                           RECORD::DomainUserAlias& candidate,
                                           bool& same_user_has_it) {
  for (const RECORD::DomainUserAlias& held : existing) {
    if (held.GetDomainIdx() != candidate.GetDomainIdx() ||
        !EqualsIgnoreCase(held.GetAccountAlias(), candidate.GetAccountAlias())) {
      continue;
    }
    candidate.SetIsDuplicated(true);
    if (held.GetUID() == candidate.GetUID()) {
      same_user_has_it = true;
    }
  }
}

void _CheckAndSetDomainUsersAliasesDuplicated(const std::vector<RECORD::DomainUserAlias>& existing,
                                              std::vector<RECORD::DomainUserAlias>& candidates) {
  const auto is_own = [&existing](RECORD::DomainUserAlias& candidate) {
    bool same_user_has_it = false;
    _CheckAndSetDomainUserAliasDuplicated(existing, candidate, same_user_has_it);
    return same_user_has_it;
  };
  std::vector<RECORD::DomainUserAlias> kept;
  for (RECORD::DomainUserAlias& candidate : candidates) {
    if (!is_own(candidate)) {
      kept.push_back(std::move(candidate));
    }
  }
  candidates = std::move(kept);
}

void _CheckAndEraseDupAlias(std::vector<RECORD::DomainUserAlias>& aliases) {
  const auto equal = [](const RECORD::DomainUserAlias& a, const RECORD::DomainUserAlias& b) {
    return EqualsIgnoreCase(a.GetAccountAlias(), b.GetAccountAlias());
  };
  aliases.erase(std::unique(aliases.begin(), aliases.end(), equal), aliases.end());
}

bool _CheckAndSetAliasDuplicatedPairs(const std::vector<RECORD::DomainUser>& others,
                                      const bool& skip_same_uid, RECORD::DomainUser& target,
                                      bool& any_duplicated) {
  any_duplicated = false;
  AliasPairs pairs = target.GetAliasDuplicatedPairs();
  for (auto& [alias, is_duplicated] : pairs) {
    for (const RECORD::DomainUser& other : others) {
      if (IsComparable(other, target, skip_same_uid) && HasAlias(other, alias)) {
        is_duplicated = true;
        any_duplicated = true;
      }
    }
  }
  target.SetAliasDuplicatedPairs(pairs);
  return true;
}

bool _CheckAndSetConflictingAccountNames(const std::vector<RECORD::DomainUser>& others,
                                         const bool& skip_same_uid, RECORD::DomainUser& target) {
  std::vector<std::string> names;
  for (const auto& [alias, is_duplicated] : target.GetAliasDuplicatedPairs()) {
    for (const RECORD::DomainUser& other : others) {
      if (IsComparable(other, target, skip_same_uid) &&
          EqualsIgnoreCase(TrimDomainName(other.GetUserName()), alias)) {
        names.push_back(other.GetUserName());
      }
    }
  }
  target.SetConflictingAccountNames(names);
  return !names.empty();
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
  if (short_names.empty()) {
    return;
  }
  std::vector<RECORD::User> mirrored;
  if (!DB::User().List(DB::UserDBFilter(), mirrored)) {
    LOG_ERROR("Failed to list users, skip _GetUsersFromUserShortNames");
    return;
  }
  std::unordered_map<std::string, const RECORD::User*> by_short_name;
  by_short_name.reserve(mirrored.size());
  for (const RECORD::User& user : mirrored) {
    by_short_name.emplace(TrimDomainName(user.GetUserName()), &user);
  }
  for (const std::string& short_name : short_names) {
    const auto found = by_short_name.find(short_name);
    if (found != by_short_name.end() && !KORVUserIsInternal(found->second->GetUserName().c_str())) {
      users.push_back(*found->second);
    }
  }
}

void _GetDomainUsersFromUsersAndFetchedAlaises(
    const int& domain_idx, const std::vector<RECORD::User>& users,
    const std::map<std::string, std::string>& fetched_aliases,
    std::vector<RECORD::DomainUser>& domain_users) {
  for (const RECORD::User& user : users) {
    const std::string short_name = TrimDomainName(user.GetUserName());
    std::string alias = short_name;
    const auto fetched = fetched_aliases.find(short_name);
    if (fetched != fetched_aliases.end()) {
      alias = fetched->second;
    } else {
      LOG_ERROR("Failed to find email address for [%s], use Zelm account name instead",
                user.GetUserName().c_str());
    }
    domain_users.emplace_back(domain_idx, user.GetUID(), user.GetUserName(),
                              AliasPairs{{alias, false}}, "normal");
  }
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
