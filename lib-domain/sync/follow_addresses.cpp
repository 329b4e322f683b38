#include "lib-domain/sync/follow_addresses.h"

#include <map>
#include <memory>
#include <optional>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/address_change.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/owner_follow.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/sync/address_follower.h"
#include "lib-domain/sync/compiled_maps.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/owner_content.h"
#include "lib-domain/sync/owner_registry.h"
#include "lib-domain/sync/pulled_addresses.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/batch_scope.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::UTILS {

using DB::INTERNAL::AddressChange;
using INTERNAL::AddressFollower;
using INTERNAL::ChangedAddresses;

namespace {

constexpr const char* kBehind = "?";    // the state of one that has to be built anew
constexpr size_t kMostChanges = 20000;  // more are not quicker than everything

// Who has one of the aliases that changed.
struct Holders {
  size_t count = 0;
  size_t unflagged = 0;
  RECORD::LocalPart owner;
};

std::string KeyOf(const std::string& alias) {
  return BASE::ToLowerAscii(alias);
}

void Add(const RECORD::DomainUser& user, const std::string& alias, bool flagged, Holders& holders) {
  holders.unflagged += flagged ? 0 : 1;
  if (holders.count++ == 0 || !flagged) {
    holders.owner = {alias, user.GetDomainIdx(), user.GetUserName()};
  }
}

enum class Found { kAll, kUnclear, kFailed };

// kUnclear where an alias has several holders with a role, and not one of them, alone, unflagged:
// then the order of all users decides.
Found FindOwners(int domain_idx, std::vector<std::string> aliases, ChangedAddresses& changes) {
  std::map<std::string, Holders> holders_by_alias;
  std::vector<RECORD::DomainUser> users;
  if (!CONTROL::INTERNAL::AddSameAddresses(domain_idx, aliases) ||
      !DB::INTERNAL::ListHoldersOf(domain_idx, aliases, users)) {
    return Found::kFailed;
  }
  for (const std::string& alias : aliases) {
    holders_by_alias[KeyOf(alias)];
    changes.aliases.emplace_back(domain_idx, alias);
  }
  for (const RECORD::DomainUser& user : users) {
    for (const auto& [alias, flagged] : user.GetAliasDuplicatedPairs()) {
      const auto asked = holders_by_alias.find(KeyOf(alias));
      if (asked != holders_by_alias.end() && !user.GetRole().empty()) {
        Add(user, alias, flagged, asked->second);
      }
    }
  }
  for (const auto& [alias, holders] : holders_by_alias) {
    if (holders.count > 1 && holders.unflagged != 1) {
      return Found::kUnclear;
    }
    if (holders.count > 0) {
      changes.owners.push_back(holders.owner);
    }
  }
  return Found::kAll;
}

Found FindChanges(const std::vector<AddressChange>& log, ChangedAddresses& changes) {
  std::map<int, std::vector<std::string>> aliases_by_domain;
  for (const AddressChange& change : log) {
    if (change.is_name) {
      AddDomainName(change.text, change.domain_idx, changes.names);
    } else {
      aliases_by_domain[change.domain_idx].push_back(change.text);
    }
  }
  if (!log.empty() && !CollectDomainNames(changes.all_names)) {
    return Found::kFailed;
  }
  for (const auto& [domain_idx, aliases] : aliases_by_domain) {
    const Found found = FindOwners(domain_idx, aliases, changes);
    if (found != Found::kAll) {
      return found;
    }
  }
  return Found::kAll;
}

bool ListSpecial(DB::INTERNAL::SpecialAddresses& addresses) {
  MailTarget target;
  return target.Read() && CollectSpecialAddresses(target, addresses);
}

// All followers, and the log that they read.
class Following {
 public:
  // `started`: the one that is to follow from now on, and whose every row is ours; or null.
  explicit Following(const AddressFollower* started = nullptr) : started_(started) {}

  // Within a BatchScope in which nobody else can write, which is to be committed in any case. True
  // when all are in line; false with a log line, and then those that are in line stay so, and the
  // others are on record as behind.
  bool Run() {
    std::vector<AddressChange> log;
    bool is_whole = false;
    if (!DB::INTERNAL::ListAddressChanges(kMostChanges, log, is_whole)) {
      return false;
    }
    const bool is_log_empty = is_whole && log.empty();
    DB::INTERNAL::SpecialAddresses kept;
    if (!_FindSpecial(kept, log)) {
      return false;
    }
    found_ = is_whole ? FindChanges(log, changes_) : Found::kUnclear;
    if (found_ == Found::kFailed) {
      return false;
    }
    bool are_in_line = true;
    for (const auto& follower :
         {INTERNAL::OwnerFollower(), INTERNAL::LoginFollower(), INTERNAL::PostfixFollower()}) {
      if (!_BringInLine(*follower)) {
        LOG_ERROR("Failed to bring in line with the domain database: [%s]",
                  follower->Place().c_str());
        are_in_line = false;
        // The log does not wait for it: it is built anew.
        std::string state;
        if (!DB::INTERNAL::GetFollowerState(follower->Name(), state) ||
            (!state.empty() && !DB::INTERNAL::SetFollowerState(follower->Name(), kBehind))) {
          return false;
        }
      }
    }
    const bool is_forgotten =
        (is_log_empty || DB::INTERNAL::ForgetAddressChanges()) &&
        (kept == changes_.special || DB::INTERNAL::KeepAddresses(changes_.special));
    return are_in_line && is_forgotten;
  }

 private:
  // Those that differ from what was kept are looked at like aliases that changed.
  bool _FindSpecial(DB::INTERNAL::SpecialAddresses& kept, std::vector<AddressChange>& log) {
    if (!DB::INTERNAL::ListKeptAddresses(kept) || !ListSpecial(changes_.special)) {
      return false;
    }
    for (const auto& [a, b] :
         {std::make_pair(&kept, &changes_.special), std::make_pair(&changes_.special, &kept)}) {
      for (const auto& [key, address] : *a) {
        const auto other = b->find(key);
        if (other == b->end() || other->second != address) {
          log.emplace_back(key.first, false, key.second);
        }
      }
    }
    return true;
  }

  bool _BringInLine(const AddressFollower& follower) {
    const bool is_started = started_ != nullptr && follower.Place() == started_->Place();
    std::string before;
    bool is_left_alone = false;
    if (!DB::INTERNAL::GetFollowerState(follower.Name(), before)) {
      return false;
    }
    if (before.empty() && !is_started) {
      return true;
    }
    if (!is_started && (!follower.IsLeftAlone(is_left_alone) || is_left_alone)) {
      return is_left_alone && DB::INTERNAL::ForgetFollower(follower.Name());
    }
    std::string state = before;
    const bool is_applied =
        !before.empty() && found_ == Found::kAll && follower.Apply(changes_, is_started, state);
    return (is_applied || (_ReadAll() && follower.Build(*content_, changes_.special, state))) &&
           (state == before || DB::INTERNAL::SetFollowerState(follower.Name(), state));
  }

  bool _ReadAll() {
    if (!content_) {
      content_.emplace();
      is_read_ = CollectOwners(*content_);
    }
    return is_read_;
  }

  const AddressFollower* started_;
  ChangedAddresses changes_;
  Found found_ = Found::kFailed;
  std::optional<OwnerRegistryContent> content_;
  bool is_read_ = false;
};

bool Start(const AddressFollower& follower) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  bool are_logged = false;
  return DB::INTERNAL::BeginWriting() && DB::INTERNAL::AreChangesLogged(are_logged) &&
         (are_logged || DB::INTERNAL::StartChangeLog()) && Following(&follower).Run() &&
         scope.Commit() == 0;
}

// The state that it was left in; empty when it does not follow.
bool GetState(const AddressFollower& follower, std::string& state) {
  bool are_logged = false;
  state.clear();
  return DB::INTERNAL::AreChangesLogged(are_logged) &&
         (!are_logged || DB::INTERNAL::GetFollowerState(follower.Name(), state));
}

// A registry that was built before there was a log is behind, one that others fill is left alone.
bool IsBehind(const AddressFollower& registry, bool& are_behind) {
  std::string state;
  bool is_left_alone = false;
  bool has_changes = false;
  bool is_in_state = false;
  are_behind = false;
  if (!registry.IsLeftAlone(is_left_alone)) {
    return false;
  }
  if (is_left_alone) {
    return true;
  }
  if (!GetState(registry, state) || !DB::INTERNAL::HasAddressChanges(has_changes) ||
      !registry.IsInState(state, is_in_state)) {
    return false;
  }
  are_behind = has_changes || state.empty() || !is_in_state;
  return true;
}

}  // namespace

bool HasChangesToFollow(bool& has_changes) {
  const DB::ReadScope of_one_moment;
  std::string postfix;
  DB::INTERNAL::SpecialAddresses kept;
  DB::INTERNAL::SpecialAddresses now;
  bool are_logged = false;
  has_changes = false;
  if (!DB::INTERNAL::AreChangesLogged(are_logged)) {
    return false;
  }
  if (!are_logged) {
    return true;
  }
  if (!DB::INTERNAL::HasAddressChanges(has_changes)) {
    return false;
  }
  if (has_changes) {
    return true;
  }
  std::string owners;
  std::string logins;
  if (!DB::INTERNAL::GetFollowerState(INTERNAL::PostfixFollower()->Name(), postfix) ||
      !DB::INTERNAL::GetFollowerState(INTERNAL::OwnerFollower()->Name(), owners) ||
      !DB::INTERNAL::GetFollowerState(INTERNAL::LoginFollower()->Name(), logins)) {
    return false;
  }
  if (postfix == kBehind || owners == kBehind || logins == kBehind) {
    has_changes = true;
    return true;
  }
  if (!postfix.empty()) {
    const bool is_read = DB::INTERNAL::ListKeptAddresses(kept) && ListSpecial(now);
    has_changes = kept != now;
    return is_read && (has_changes || AreCompiledMapsBehind(has_changes));
  }
  return true;
}

bool FollowAddresses() {
  bool has_changes = false;
  if (!HasChangesToFollow(has_changes)) {
    return false;
  }
  if (!has_changes) {
    return true;
  }
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  const bool are_in_line = DB::INTERNAL::BeginWriting() && Following().Run();
  const bool is_committed = scope.Commit() == 0;
  // Not while nobody else can write: it takes seconds, and what it makes is made up for.
  return CompilePostfixMaps() && is_committed && are_in_line;
}

bool BuildOwners(OwnerCounts& counts) {
  const std::unique_ptr<AddressFollower> owners = INTERNAL::OwnerFollower();
  std::string text;
  if (!Start(*owners) || !GetState(*owners, text)) {
    return false;
  }
  DB::INTERNAL::OwnerState state = DB::INTERNAL::OwnerStateOf(text);
  if (!DB::INTERNAL::CountOwners(owners->Place(), state)) {
    return false;
  }
  counts = {static_cast<size_t>(state.domains), static_cast<size_t>(state.local_parts)};
  return true;
}

bool BuildLogins() {
  return Start(*INTERNAL::LoginFollower());
}

bool BuildPostfixMaps() {
  return Start(*INTERNAL::PostfixFollower()) && CompilePostfixMaps();
}

bool ForgetPostfixMaps() {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  bool are_logged = false;
  return DB::INTERNAL::BeginWriting() && DB::INTERNAL::AreChangesLogged(are_logged) &&
         (!are_logged || DB::INTERNAL::ForgetFollower(INTERNAL::PostfixFollower()->Name())) &&
         scope.Commit() == 0;
}

bool AreOwnersBehind(bool& are_behind) {
  return IsBehind(*INTERNAL::OwnerFollower(), are_behind);
}

bool AreLoginsBehind(bool& are_behind) {
  return IsBehind(*INTERNAL::LoginFollower(), are_behind);
}

bool ArePostfixMapsBehind(bool& are_behind) {
  const std::unique_ptr<AddressFollower> maps = INTERNAL::PostfixFollower();
  std::string state;
  bool has_changes = false;
  bool is_in_state = true;
  if (!GetState(*maps, state) || !HasChangesToFollow(has_changes) ||
      (!state.empty() && !maps->IsInState(state, is_in_state))) {
    return false;
  }
  // Maps of a model that does not know of them: it came from elsewhere.
  are_behind = state.empty() ? HasPostfixMaps() : has_changes || !is_in_state;
  return true;
}

}  // namespace MDOMAIN::UTILS
