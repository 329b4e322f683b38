// Collisions are found in hash tables whose keys are the domain and the folded text.
#include "lib-domain/control/alias_index.h"

#include <cstdint>
#include <set>
#include <tuple>
#include <utility>

#include "lib-domain/base/text.h"
#include "platform/include/account.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

using AliasPairs = std::vector<std::pair<std::string, bool>>;

// The number comes first, so no text can be read as another domain's.
std::string Key(int domain_idx, const std::string& text) {
  std::string key = std::to_string(domain_idx);
  key.append(1, ':').append(text);
  return BASE::ToLowerAscii(std::move(key));
}

std::string OwnedKey(unsigned int uid, const std::string& key) {
  return std::to_string(uid) + ':' + key;
}

uint64_t UserKey(int domain_idx, unsigned int uid) {
  return uint64_t{static_cast<uint32_t>(domain_idx)} << 32U | uid;
}

template <typename Record>
std::vector<int> DomainsOfAll(const std::vector<Record>& records) {
  std::set<int> domain_idxs;
  for (const Record& record : records) {
    domain_idxs.insert(record.GetDomainIdx());
  }
  return {domain_idxs.begin(), domain_idxs.end()};
}

// What decides between equal aliases: the smallest claim gets the clean one.
struct Claim {
  std::string role;
  bool is_flagged;
  unsigned int uid;
  size_t pair;
  size_t user;

  bool operator<(const Claim& other) const {
    return std::tie(role, is_flagged, uid, pair) <
           std::tie(other.role, other.is_flagged, other.uid, other.pair);
  }
};

// Somebody without a role for the moment gets "normal" from the next refresh.
std::string RoleOf(const RECORD::DomainUser& user) {
  const std::string role = user.GetRole();
  return role.empty() ? "normal" : role;
}

using Claims = std::unordered_map<std::string, Claim>;

Claims FindWinners(const std::vector<RECORD::DomainUser>& users) {
  Claims winners;
  winners.reserve(users.size());
  for (size_t user = 0; user < users.size(); ++user) {
    const std::string role = RoleOf(users[user]);
    const AliasPairs pairs = users[user].GetAliasDuplicatedPairs();
    for (size_t pair = 0; pair < pairs.size(); ++pair) {
      const Claim claim{role, pairs[pair].second, users[user].GetUID(), pair, user};
      const auto [held, is_new] =
          winners.emplace(Key(users[user].GetDomainIdx(), pairs[pair].first), claim);
      if (!is_new && claim < held->second) {
        held->second = claim;
      }
    }
  }
  return winners;
}

}  // namespace

AliasIndex::Before AliasIndex::Add(int domain_idx, unsigned int uid, const std::string& alias) {
  std::string key = Key(domain_idx, alias);
  const auto [held, is_new] = holders_.try_emplace(std::move(key), Holders{uid, false});
  if (is_new) {
    return Before::kFree;
  }
  Holders& holders = held->second;
  const bool are_others = holders.are_several || holders.first_uid != uid;
  if (holders.first_uid != uid) {
    holders.are_several = true;
    later_.insert(OwnedKey(uid, held->first));
  }
  return are_others ? Before::kOthers : Before::kOwn;
}

void AliasIndex::Add(const std::vector<RECORD::DomainUserAlias>& aliases) {
  holders_.reserve(holders_.size() + aliases.size());
  for (const RECORD::DomainUserAlias& alias : aliases) {
    Add(alias.GetDomainIdx(), alias.GetUID(), alias.GetAccountAlias());
  }
}

void AliasIndex::Add(const std::vector<RECORD::DomainUser>& users) {
  holders_.reserve(holders_.size() + users.size());
  for (const RECORD::DomainUser& user : users) {
    for (const auto& [alias, is_duplicated] : user.GetAliasDuplicatedPairs()) {
      Add(user.GetDomainIdx(), user.GetUID(), alias);
    }
  }
}

bool AliasIndex::IsHeld(int domain_idx, const std::string& alias) const {
  return !holders_.empty() && holders_.count(Key(domain_idx, alias)) != 0;
}

bool AliasIndex::IsHeldBy(int domain_idx, unsigned int uid, const std::string& alias) const {
  const auto held = holders_.find(Key(domain_idx, alias));
  return held != holders_.end() &&
         (held->second.first_uid == uid ||
          (held->second.are_several && later_.count(OwnedKey(uid, held->first)) != 0));
}

bool AliasIndex::IsHeldByOther(int domain_idx, unsigned int uid, const std::string& alias) const {
  if (holders_.empty()) {
    return false;
  }
  const auto held = holders_.find(Key(domain_idx, alias));
  return held != holders_.end() && (held->second.are_several || held->second.first_uid != uid);
}

AccountNameIndex::AccountNameIndex(const std::vector<RECORD::DomainUser>& users) {
  for (const RECORD::DomainUser& user : users) {
    accounts_[Key(user.GetDomainIdx(), TrimDomainName(user.GetUserName()))].push_back(
        {user.GetUID(), user.GetUserName()});
  }
}

void AccountNameIndex::AppendNames(int domain_idx, const std::string& alias,
                                   std::optional<unsigned int> skipped_uid,
                                   std::vector<std::string>& names) const {
  const auto found = accounts_.find(Key(domain_idx, alias));
  if (found == accounts_.end()) {
    return;
  }
  for (const Account& account : found->second) {
    if (account.uid != skipped_uid) {
      names.push_back(account.user_name);
    }
  }
}

std::vector<int> DomainsOf(const std::vector<RECORD::DomainUser>& users) {
  return DomainsOfAll(users);
}

std::vector<int> DomainsOf(const std::vector<RECORD::DomainUserAlias>& aliases) {
  return DomainsOfAll(aliases);
}

std::vector<RECORD::DomainUserAlias> AliasesOf(const std::vector<RECORD::DomainUser>& users) {
  std::vector<RECORD::DomainUserAlias> all;
  for (const RECORD::DomainUser& user : users) {
    for (RECORD::DomainUserAlias& alias : user.ExtractDomainUserAliases()) {
      all.push_back(std::move(alias));
    }
  }
  return all;
}

void EraseRepeatsOfEachUser(std::vector<RECORD::DomainUserAlias>& aliases) {
  std::unordered_map<uint64_t, std::string> last_of_user;
  last_of_user.reserve(aliases.size());
  std::vector<RECORD::DomainUserAlias> kept;
  kept.reserve(aliases.size());
  for (RECORD::DomainUserAlias& alias : aliases) {
    std::string folded = BASE::ToLowerAscii(alias.GetAccountAlias());
    const auto [last, is_first] =
        last_of_user.emplace(UserKey(alias.GetDomainIdx(), alias.GetUID()), folded);
    if (!is_first && last->second == folded) {
      continue;
    }
    last->second = std::move(folded);
    kept.push_back(std::move(alias));
  }
  aliases = std::move(kept);
}

bool FlagCandidate(const AliasIndex& existing, RECORD::DomainUserAlias& candidate) {
  const int domain_idx = candidate.GetDomainIdx();
  const std::string alias = candidate.GetAccountAlias();
  if (!existing.IsHeld(domain_idx, alias)) {
    return false;
  }
  candidate.SetIsDuplicated(true);
  return existing.IsHeldBy(domain_idx, candidate.GetUID(), alias);
}

void DropOwnAndFlagOthers(const AliasIndex& existing,
                          std::vector<RECORD::DomainUserAlias>& candidates) {
  std::vector<RECORD::DomainUserAlias> kept;
  kept.reserve(candidates.size());
  for (RECORD::DomainUserAlias& candidate : candidates) {
    if (!FlagCandidate(existing, candidate)) {
      kept.push_back(std::move(candidate));
    }
  }
  candidates = std::move(kept);
}

void CheckAndFlagCandidates(const AliasIndex& existing,
                            std::vector<RECORD::DomainUserAlias>& candidates) {
  DropOwnAndFlagOthers(existing, candidates);
  AliasIndex earlier;
  earlier.Reserve(candidates.size());
  for (RECORD::DomainUserAlias& candidate : candidates) {
    if (earlier.Add(candidate.GetDomainIdx(), candidate.GetUID(), candidate.GetAccountAlias()) !=
        AliasIndex::Before::kFree) {
      candidate.SetIsDuplicated(true);
    }
  }
}

bool FlagPairs(const AliasIndex& others, bool skip_same_uid, RECORD::DomainUser& target) {
  const int domain_idx = target.GetDomainIdx();
  bool any_duplicated = false;
  AliasPairs pairs = target.GetAliasDuplicatedPairs();
  for (auto& [alias, is_duplicated] : pairs) {
    if (skip_same_uid ? others.IsHeldByOther(domain_idx, target.GetUID(), alias)
                      : others.IsHeld(domain_idx, alias)) {
      is_duplicated = true;
      any_duplicated = true;
    }
  }
  target.SetAliasDuplicatedPairs(pairs);
  return any_duplicated;
}

bool CheckAndFlagPairs(const AliasIndex& others, AliasIndex& batch, RECORD::DomainUser& target) {
  const int domain_idx = target.GetDomainIdx();
  const unsigned int uid = target.GetUID();
  bool any_duplicated = false;
  AliasPairs pairs = target.GetAliasDuplicatedPairs();
  for (auto& [alias, is_duplicated] : pairs) {
    const bool is_in_batch = batch.Add(domain_idx, uid, alias) == AliasIndex::Before::kOthers;
    if (is_in_batch || others.IsHeldByOther(domain_idx, uid, alias)) {
      is_duplicated = true;
      any_duplicated = true;
    }
  }
  if (any_duplicated) {
    target.SetAliasDuplicatedPairs(pairs);
  }
  return any_duplicated;
}

bool SetConflictingNames(const AccountNameIndex& others, bool skip_same_uid,
                         RECORD::DomainUser& target) {
  std::optional<unsigned int> skipped_uid;
  if (skip_same_uid) {
    skipped_uid = target.GetUID();
  }
  std::vector<std::string> names;
  for (const auto& [alias, is_duplicated] : target.GetAliasDuplicatedPairs()) {
    others.AppendNames(target.GetDomainIdx(), alias, skipped_uid, names);
  }
  target.SetConflictingAccountNames(names);
  return !names.empty();
}

std::vector<bool> RecomputeFlags(std::vector<RECORD::DomainUser>& users,
                                 const EntryNames& entries) {
  std::vector<std::vector<size_t>> clean_pairs(users.size());
  for (const auto& [key, winner] : FindWinners(users)) {
    clean_pairs[winner.user].push_back(winner.pair);
  }
  std::vector<bool> changed(users.size(), false);
  for (size_t user = 0; user < users.size(); ++user) {
    const AliasPairs stored = users[user].GetAliasDuplicatedPairs();
    AliasPairs pairs = stored;
    for (std::pair<std::string, bool>& pair : pairs) {
      pair.second = true;
    }
    for (const size_t pair : clean_pairs[user]) {
      pairs[pair].second = entries.Has(users[user].GetDomainIdx(), pairs[pair].first);
    }
    if (pairs != stored) {
      changed[user] = true;
      users[user].SetAliasDuplicatedPairs(pairs);
    }
  }
  return changed;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
