// Collisions are found by hashes of the domain and the folded text.
#include "lib-domain/control/alias_index.h"

#include <cstdint>
#include <set>
#include <tuple>
#include <utility>

#include "lib-domain/base/text.h"
#include "platform/include/account.h"
#include "platform/include/text.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

using korvmailserver::HashIndex;
using AliasPairs = std::vector<std::pair<std::string, bool>>;

// The number comes first, so no text can be read as another domain's.
std::string Key(int domain_idx, const std::string& text) {
  std::string key = std::to_string(domain_idx);
  key.append(1, ':').append(text);
  return BASE::ToLowerAscii(std::move(key));
}

// Equal for what is equal without ASCII case in one domain.
uint32_t FoldedHash(int domain_idx, const std::string& alias) {
  constexpr uint64_t kPrime = 0x100000001B3U;
  constexpr uint64_t kMix = 0x9E3779B97F4A7C15U;
  uint64_t hash = static_cast<uint32_t>(domain_idx) + uint64_t{1};
  for (const char c : alias) {
    hash = (hash ^ static_cast<unsigned char>(korvmailserver::ToLowerAscii(c))) * kPrime;
  }
  return static_cast<uint32_t>(((hash ^ hash >> 32U) * kMix) >> 32U);
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

void AliasIndex::Reserve(size_t aliases) {
  held_.reserve(aliases);
  index_.Reserve(aliases);
}

// Callable while `alias` lives and nothing is added.
auto AliasIndex::_Is(int domain_idx, std::string_view alias) const {
  return [this, domain_idx, alias](uint32_t number) {
    const Held& held = held_[number];
    return held.domain_idx == domain_idx &&
           korvmailserver::EqualsIgnoreAsciiCase(
               std::string_view(texts_).substr(held.begin, held.length), alias);
  };
}

AliasIndex::Before AliasIndex::Add(int domain_idx, unsigned int uid, const std::string& alias) {
  const auto number = static_cast<uint32_t>(held_.size());
  const uint32_t found =
      index_.FindOrAdd(FoldedHash(domain_idx, alias), number, _Is(domain_idx, alias));
  if (found == HashIndex::kNone) {
    held_.push_back({texts_.size(), static_cast<uint32_t>(alias.size()), domain_idx, uid, false});
    texts_ += alias;
    return Before::kFree;
  }
  Held& held = held_[found];
  const bool are_others = held.are_several || held.first_uid != uid;
  if (held.first_uid != uid) {
    held.are_several = true;
    later_.emplace(found, uid);
  }
  return are_others ? Before::kOthers : Before::kOwn;
}

void AliasIndex::Add(const std::vector<RECORD::DomainUserAlias>& aliases) {
  Reserve(held_.size() + aliases.size());
  for (const RECORD::DomainUserAlias& alias : aliases) {
    Add(alias.GetDomainIdx(), alias.GetUID(), alias.GetAccountAlias());
  }
}

void AliasIndex::Add(const std::vector<RECORD::DomainUser>& users) {
  Reserve(held_.size() + users.size());
  for (const RECORD::DomainUser& user : users) {
    for (const auto& [alias, is_duplicated] : user.GetAliasDuplicatedPairs()) {
      Add(user.GetDomainIdx(), user.GetUID(), alias);
    }
  }
}

// Null when nobody holds it.
const AliasIndex::Held* AliasIndex::_Find(int domain_idx, const std::string& alias) const {
  if (held_.empty()) {
    return nullptr;
  }
  const uint32_t number = index_.Find(FoldedHash(domain_idx, alias), _Is(domain_idx, alias));
  return number == HashIndex::kNone ? nullptr : &held_[number];
}

bool AliasIndex::IsHeld(int domain_idx, const std::string& alias) const {
  return _Find(domain_idx, alias) != nullptr;
}

bool AliasIndex::IsHeldBy(int domain_idx, unsigned int uid, const std::string& alias) const {
  const Held* const held = _Find(domain_idx, alias);
  return held != nullptr &&
         (held->first_uid == uid ||
          (held->are_several &&
           later_.count({static_cast<uint32_t>(held - held_.data()), uid}) != 0));
}

bool AliasIndex::IsHeldByOther(int domain_idx, unsigned int uid, const std::string& alias) const {
  const Held* const held = _Find(domain_idx, alias);
  return held != nullptr && (held->are_several || held->first_uid != uid);
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
  all.reserve(users.size());
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
