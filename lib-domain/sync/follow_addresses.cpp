#include "lib-domain/sync/follow_addresses.h"

#include <algorithm>
#include <map>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/address_change.h"
#include "lib-domain/db/change_counter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/model_state.h"
#include "lib-domain/db/owner_follow.h"
#include "lib-domain/sync/owner_registry.h"
#include "platform/include/batch_scope.h"

namespace MDOMAIN::UTILS {

using DB::INTERNAL::AddressChange;
using DB::INTERNAL::OwnerChanges;
using DB::INTERNAL::OwnerState;

namespace {

constexpr const char* kOwners = "owners";
constexpr size_t kMostChanges = 20000;  // more are not quicker than everything

// Who has one of the aliases that changed.
struct Holders {
  size_t count = 0;
  size_t unflagged = 0;
  bool has_unclear = false;  // no role
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
  holders.has_unclear = holders.has_unclear || user.GetRole().empty();
}

enum class Found { kAll, kUnclear, kFailed };

// kUnclear where an alias has several holders and not one of them, alone, unflagged, or a holder
// without a role: then the order of all users decides.
Found FindOwners(int domain_idx, const std::vector<std::string>& aliases, OwnerChanges& changes) {
  std::map<std::string, Holders> holders_by_alias;
  for (const std::string& alias : aliases) {
    holders_by_alias[KeyOf(alias)];
    changes.aliases.emplace_back(domain_idx, alias);
  }
  std::vector<RECORD::DomainUser> users;
  if (!DB::INTERNAL::ListHoldersOf(domain_idx, aliases, users)) {
    return Found::kFailed;
  }
  for (const RECORD::DomainUser& user : users) {
    for (const auto& [alias, flagged] : user.GetAliasDuplicatedPairs()) {
      const auto asked = holders_by_alias.find(KeyOf(alias));
      if (asked != holders_by_alias.end()) {
        Add(user, alias, flagged, asked->second);
      }
    }
  }
  for (const auto& [alias, holders] : holders_by_alias) {
    if (holders.has_unclear || (holders.count > 1 && holders.unflagged != 1)) {
      return Found::kUnclear;
    }
    if (holders.count > 0) {
      changes.owners.push_back(holders.owner);
    }
  }
  return Found::kAll;
}

// What the changed names, in either spelling, mean now.
bool FindNames(const std::vector<AddressChange>& log, OwnerChanges& changes) {
  std::vector<RECORD::DomainPart> changed;
  for (const AddressChange& change : log) {
    if (change.is_name) {
      AddDomainName(change.text, change.domain_idx, changed);
    }
  }
  std::vector<RECORD::DomainPart> all;
  if (!changed.empty() && !CollectDomainNames(all)) {
    return false;
  }
  for (const RECORD::DomainPart& part : changed) {
    changes.names.push_back(part.GetDomainName());
  }
  std::copy_if(all.begin(), all.end(), std::back_inserter(changes.domains),
               [&changes](const RECORD::DomainPart& part) {
                 return std::any_of(changes.names.begin(), changes.names.end(),
                                    [&part](const std::string& name) {
                                      return KeyOf(name) == KeyOf(part.GetDomainName());
                                    });
               });
  return true;
}

Found FindChanges(const std::vector<AddressChange>& log, OwnerChanges& changes) {
  if (!FindNames(log, changes)) {
    return Found::kFailed;
  }
  std::map<int, std::vector<std::string>> aliases_by_domain;
  for (const AddressChange& change : log) {
    if (!change.is_name) {
      aliases_by_domain[change.domain_idx].push_back(change.text);
    }
  }
  for (const auto& [domain_idx, aliases] : aliases_by_domain) {
    const Found found = FindOwners(domain_idx, aliases, changes);
    if (found != Found::kAll) {
      return found;
    }
  }
  return Found::kAll;
}

// Everything anew.
bool Rebuild(OwnerState& state) {
  const std::string path = PATHS::EmailOwnerDb();
  OwnerRegistryContent content;
  return CollectOwners(content) && ReplaceOwnerRegistry(path, content) &&
         DB::INTERNAL::ReadOwnerState(path, state);
}

// The rows that the log names, or everything. `must_be_ours`: also where others wrote rows.
bool BringInLine(bool must_be_ours, OwnerState& state) {
  std::vector<AddressChange> log;
  bool is_whole = false;
  OwnerChanges changes;
  int built_from = 0;
  if (!DB::INTERNAL::ListAddressChanges(kMostChanges, log, is_whole)) {
    return false;
  }
  const bool may_follow = is_whole && state.built_from != 0;
  const Found found = may_follow ? FindChanges(log, changes) : Found::kUnclear;
  if (found == Found::kFailed || !DB::GetChangeCounter(built_from)) {
    return false;
  }
  const bool is_followed =
      found == Found::kAll &&
      DB::INTERNAL::ApplyOwnerChanges(PATHS::EmailOwnerDb(), changes, built_from, state) &&
      (!must_be_ours || state.counter != 0);
  const bool is_log_empty = is_whole && log.empty();
  return (is_followed || Rebuild(state)) && (is_log_empty || DB::INTERNAL::ForgetAddressChanges());
}

bool GetState(OwnerState& state, std::string& text) {
  if (!DB::INTERNAL::GetFollowerState(kOwners, text)) {
    return false;
  }
  state = DB::INTERNAL::OwnerStateOf(text);
  return true;
}

bool SetState(const OwnerState& state, const std::string& before) {
  return state.Text() == before || DB::INTERNAL::SetFollowerState(kOwners, state.Text());
}

}  // namespace

bool FollowAddresses() {
  bool has_changes = false;
  if (!DB::INTERNAL::HasAddressChanges(has_changes)) {
    return false;
  }
  if (!has_changes) {
    return true;
  }
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  OwnerState state;
  OwnerState found;
  std::string text;
  if (!DB::INTERNAL::BeginWriting() || !GetState(state, text) ||
      !DB::INTERNAL::ReadOwnerState(PATHS::EmailOwnerDb(), found)) {
    return false;
  }
  // It was removed, or somebody else fills it now.
  const bool is_left_alone = found.built_from == 0;
  const bool is_done = is_left_alone ? DB::INTERNAL::ForgetFollower(kOwners)
                                     : BringInLine(false, state) && SetState(state, text);
  if (!is_done || scope.Commit() != 0) {
    LOG_ERROR("Failed to bring the registry of address owners in line, path: [%s]",
              PATHS::EmailOwnerDb().c_str());
    return false;
  }
  return true;
}

bool BuildOwners(OwnerCounts& counts) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  OwnerState state;
  std::string text;
  bool are_logged = false;
  return DB::INTERNAL::BeginWriting() && DB::INTERNAL::AreChangesLogged(are_logged) &&
         (are_logged || DB::INTERNAL::StartChangeLog()) && GetState(state, text) &&
         BringInLine(true, state) && SetState(state, text) && scope.Commit() == 0 &&
         DB::INTERNAL::CountOwners(PATHS::EmailOwnerDb(), counts.domain_names, counts.local_parts);
}

bool AreOwnersBehind(bool& are_behind) {
  are_behind = false;
  OwnerState found;
  if (!DB::INTERNAL::ReadOwnerState(PATHS::EmailOwnerDb(), found)) {
    return false;
  }
  if (found.built_from == 0) {
    return true;
  }
  bool are_logged = false;
  bool has_changes = false;
  OwnerState state;
  std::string text;
  if (!DB::INTERNAL::AreChangesLogged(are_logged) ||
      !DB::INTERNAL::HasAddressChanges(has_changes) || (are_logged && !GetState(state, text))) {
    return false;
  }
  are_behind = !are_logged || has_changes || state.built_from != found.built_from;
  return true;
}

}  // namespace MDOMAIN::UTILS
