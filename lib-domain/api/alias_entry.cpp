#include "lib-domain/api/alias_entry.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "lib-domain/api/trigger.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/domain_user_flags.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/special_address.h"
#include "lib-domain/sync/dead_end.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/batch_scope.h"
#include "platform/include/eai.h"
#include "platform/include/nodes.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::API {

namespace {

using korvmailserver::FoldMapKey;
using Kind = ::Alias::MemberKind;

bool Load(::Alias& table) {
  if (table.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  return true;
}

const ::Alias::Entry* FindIn(const ::Alias& table, int domain_idx, const std::string& name) {
  const ::Alias::Entry* found = nullptr;
  const std::string key = FoldMapKey(name);
  for (const ::Alias::Entry& entry : table.list()) {
    if (entry.domain_id != domain_idx || FoldMapKey(entry.name) != key) {
      continue;
    }
    // Another program may have made several that differ in letter case.
    if (found == nullptr || entry.name == name) {
      found = &entry;
    }
  }
  return found;
}

bool IsAddress(const std::string& text) {
  const size_t at = text.rfind('@');
  return at != std::string::npos &&
         KORV::POSTARA_SERVER::IsValidEaiLocalPart(text.substr(0, at), true) &&
         KORV::POSTARA_SERVER::IsValidEaiDomain(text.substr(at + 1));
}

// An alias that an account got of that name is an address of its own again.
bool FreeAlias(int domain_idx, const std::string& name) {
  BatchScope scope(DB::DomainDBHandler::GetDomainDBHandler());
  return CONTROL::INTERNAL::UpdateFlags({domain_idx}, {{domain_idx, 0, name, false}}) &&
         scope.Commit() == 0;
}

AliasEntry::Result Publish() {
  return INTERNAL::TriggerUpdater() ? AliasEntry::Result::kDone : AliasEntry::Result::kUnpublished;
}

// By index; empty with a log line when they cannot be read.
std::map<int, std::string> DomainNames() {
  std::vector<RECORD::Domain> domains;
  std::map<int, std::string> names;
  if (DB::Domain().ListNames(domains)) {
    for (const RECORD::Domain& domain : domains) {
      names.emplace(domain.GetDomainIdx(), domain.GetDomainName());
    }
  }
  return names;
}

// Makes the entries of these names what they were.
void TakeBack(::Alias& table, const std::vector<::Alias::Entry>& changed,
              const std::vector<::Alias::Entry>& before) {
  const auto key = [](const ::Alias::Entry& entry) {
    return std::pair(entry.domain_id, FoldMapKey(entry.name));
  };
  std::map<std::pair<int, std::string>, const ::Alias::Entry*> known;
  for (const ::Alias::Entry& entry : before) {
    known.emplace(key(entry), &entry);
  }
  for (const ::Alias::Entry& entry : changed) {
    const auto old = known.find(key(entry));
    if (old == known.end() ? table.del(entry.name, entry.domain_id) < 0
                           : table.set(*old->second) < 0) {
      LOG_ERROR("Failed to take back, domain_id: [%d]", entry.domain_id);
    }
  }
}

}  // namespace

bool AliasEntry::List(int domain_idx, std::vector<::Alias::Entry>& entries) {
  ::Alias table(PATHS::AliasDb());
  if (!Load(table)) {
    return false;
  }
  std::copy_if(table.list().begin(), table.list().end(), std::back_inserter(entries),
               [domain_idx](const ::Alias::Entry& entry) { return entry.domain_id == domain_idx; });
  return true;
}

bool AliasEntry::List(std::vector<::Alias::Entry>& entries) {
  ::Alias table(PATHS::AliasDb());
  if (!Load(table)) {
    return false;
  }
  entries.insert(entries.end(), table.list().begin(), table.list().end());
  return true;
}

bool AliasEntry::Find(int domain_idx, const std::string& name, bool& found, ::Alias::Entry& entry) {
  ::Alias table(PATHS::AliasDb());
  if (!Load(table)) {
    return false;
  }
  const ::Alias::Entry* const stored = FindIn(table, domain_idx, name);
  found = stored != nullptr;
  if (found) {
    entry = *stored;
  }
  return true;
}

AliasEntry::Result AliasEntry::Create(const ::Alias::Entry& entry) {
  return _Store(entry, true);
}

AliasEntry::Result AliasEntry::Set(const ::Alias::Entry& entry) {
  return _Store(entry, false);
}

AliasEntry::Result AliasEntry::Delete(int domain_idx, const std::string& name) {
  const korvmailserver::PublicationScope publication;
  problem_.clear();
  ::Alias table(PATHS::AliasDb());
  if (!Load(table)) {
    return Result::kFailed;
  }
  const ::Alias::Entry* const stored = FindIn(table, domain_idx, name);
  if (stored == nullptr) {
    FreeAlias(domain_idx, name);  // what a deletion left that did not end
    return Result::kMissing;
  }
  const std::string stored_name = stored->name;
  if (table.del(stored_name, domain_idx) < 0) {
    LOG_ERROR("Failed to del, domain_id: [%d]", domain_idx);
    return Result::kFailed;
  }
  const bool is_free = FreeAlias(domain_idx, stored_name);
  const Result published = Publish();
  return is_free ? published : Result::kFailed;
}

AliasEntry::Result AliasEntry::_Store(const ::Alias::Entry& entry, bool must_be_new) {
  const korvmailserver::PublicationScope publication;
  problem_.clear();
  ::Alias table(PATHS::AliasDb());
  if (!Load(table)) {
    return Result::kFailed;
  }
  const ::Alias::Entry* const stored = FindIn(table, entry.domain_id, entry.name);
  if ((stored != nullptr) == must_be_new) {
    return must_be_new ? Result::kExists : Result::kMissing;
  }
  const Result checked = _Check(entry, must_be_new);
  if (checked != Result::kDone) {
    return checked;
  }
  ::Alias::Entry wanted = entry;
  wanted.name = stored == nullptr ? entry.name : stored->name;
  if (table.set(wanted) < 0) {
    LOG_ERROR("Failed to set, domain_id: [%d]", entry.domain_id);
    return Result::kFailed;
  }
  return Publish();
}

AliasEntry::Result AliasEntry::_Check(const ::Alias::Entry& entry, bool is_new) {
  std::vector<RECORD::Domain> domains;
  std::vector<RECORD::DomainUser> holders;
  std::vector<std::string> aliases = {entry.name};
  if (!DB::Domain().ListNames(domains) ||
      !CONTROL::INTERNAL::AddSameAddresses(entry.domain_id, aliases) ||
      !DB::INTERNAL::ListHoldersOf(entry.domain_id, aliases, holders)) {
    return Result::kFailed;
  }
  if (std::none_of(domains.begin(), domains.end(), [&entry](const RECORD::Domain& domain) {
        return domain.GetDomainIdx() == entry.domain_id;
      })) {
    return _Refuse(Result::kMissing, "domain " + std::to_string(entry.domain_id));
  }
  if (!UTILS::IsAccountAliasValid(entry.name)) {
    return _Refuse(Result::kInvalid, entry.name);
  }
  for (const RECORD::DomainUser& holder : holders) {
    for (const auto& alias : holder.GetAliasDuplicatedPairs()) {
      if (is_new && FoldMapKey(alias.first) == FoldMapKey(entry.name)) {
        return _Refuse(Result::kTaken, holder.GetUserName());
      }
    }
  }
  const Result members = entry.members.empty() ? Result::kInvalid : _CheckMembers(entry);
  return members == Result::kDone ? _CheckWays(entry) : members;
}

AliasEntry::Result AliasEntry::_CheckMembers(const ::Alias::Entry& entry) {
  for (const ::Alias::Member& member : entry.members) {
    bool is_known = false;
    std::string name;
    if (member.kind == Kind::Address) {
      is_known = IsAddress(member.name);
    } else if (member.kind == Kind::User) {
      if (!DB::INTERNAL::FindAccount(member.name, name)) {
        return Result::kFailed;
      }
      is_known = name == member.name;
    } else {
      std::vector<RECORD::Group> groups;
      if (!DB::INTERNAL::ListNamed({member.name}, groups)) {
        return Result::kFailed;
      }
      is_known = std::any_of(groups.begin(), groups.end(), [&member](const RECORD::Group& group) {
        return group.GetGroupName() == member.name;
      });
    }
    if (!is_known) {
      return _Refuse(Result::kInvalid, member.name);
    }
  }
  return Result::kDone;
}

AliasEntry::Result AliasEntry::_CheckWays(const ::Alias::Entry& entry) {
  std::vector<UTILS::DeadEnd> dead_ends;
  if (!UTILS::ListDeadEnds(entry, dead_ends)) {
    return Result::kFailed;
  }
  for (const UTILS::DeadEnd& end : dead_ends) {
    if (!end.receiver.empty()) {
      return _Refuse(end.is_loop ? Result::kLoop : Result::kNobody, end.receiver);
    }
  }
  return Result::kDone;
}

AliasEntry::Result AliasEntry::SetAll(const std::vector<::Alias::Entry>& entries,
                                      std::vector<std::string>& dead_ends) {
  const korvmailserver::PublicationScope publication;
  problem_.clear();
  ::Alias table(PATHS::AliasDb());
  if (!Load(table)) {
    return Result::kFailed;
  }
  const std::vector<::Alias::Entry> before = table.list();
  Result result = _CheckNames(entries, table);
  for (auto entry = entries.begin(); result == Result::kDone && entry != entries.end(); ++entry) {
    result = _CheckMembers(*entry);
  }
  if (result != Result::kDone) {
    return result;
  }
  for (const ::Alias::Entry& entry : entries) {
    const ::Alias::Entry* const stored = FindIn(table, entry.domain_id, entry.name);
    ::Alias::Entry wanted = entry;
    wanted.name = stored == nullptr ? entry.name : stored->name;
    if (table.set(wanted) < 0) {
      LOG_ERROR("Failed to set, domain_id: [%d]", entry.domain_id);
      result = Result::kFailed;
      break;
    }
  }
  result = result == Result::kDone ? _CheckAllWays(entries, dead_ends) : result;
  if (result != Result::kDone) {
    TakeBack(table, entries, before);
    return result;
  }
  return Publish();
}

// What Create and Set ask of a name, with one read per domain.
AliasEntry::Result AliasEntry::_CheckNames(const std::vector<::Alias::Entry>& entries,
                                           const ::Alias& table) {
  const std::map<int, std::string> domains = DomainNames();
  std::map<int, std::vector<std::string>> new_names;
  for (const ::Alias::Entry& entry : entries) {
    if (domains.count(entry.domain_id) == 0) {
      return _Refuse(Result::kMissing, "domain " + std::to_string(entry.domain_id));
    }
    if (!UTILS::IsAccountAliasValid(entry.name)) {
      return _Refuse(Result::kInvalid, entry.name);
    }
    if (FindIn(table, entry.domain_id, entry.name) == nullptr) {
      new_names[entry.domain_id].push_back(entry.name);
    }
  }
  for (const auto& [idx, names] : new_names) {
    std::set<std::string> keys;
    std::transform(names.begin(), names.end(), std::inserter(keys, keys.end()), FoldMapKey);
    std::vector<std::string> aliases = names;
    std::vector<RECORD::DomainUser> holders;
    if (!CONTROL::INTERNAL::AddSameAddresses(idx, aliases) ||
        !DB::INTERNAL::ListHoldersOf(idx, aliases, holders)) {
      return Result::kFailed;
    }
    for (const RECORD::DomainUser& holder : holders) {
      for (const auto& alias : holder.GetAliasDuplicatedPairs()) {
        if (keys.count(FoldMapKey(alias.first)) != 0) {
          return _Refuse(Result::kTaken, alias.first + " of " + holder.GetUserName());
        }
      }
    }
  }
  return Result::kDone;
}

AliasEntry::Result AliasEntry::_CheckAllWays(const std::vector<::Alias::Entry>& entries,
                                             std::vector<std::string>& dead_ends) {
  const std::map<int, std::string> domains = DomainNames();
  std::set<std::string> addresses;
  for (const ::Alias::Entry& entry : entries) {
    addresses.insert(FoldMapKey(entry.name) + "@" + domains.at(entry.domain_id));
  }
  std::vector<UTILS::DeadEnd> found;
  if (!UTILS::ListDeadEnds(found)) {
    return Result::kFailed;
  }
  for (const UTILS::DeadEnd& end : found) {
    if (addresses.count(end.address) == 0) {
      continue;
    }
    if (end.is_loop) {
      return _Refuse(Result::kLoop, end.receiver);
    }
    dead_ends.push_back(end.address + ": " +
                        (end.receiver.empty() ? "has no member" : "nobody has " + end.receiver));
  }
  return Result::kDone;
}

AliasEntry::Result AliasEntry::_Refuse(Result result, const std::string& problem) {
  problem_ = problem;
  return result;
}

}  // namespace MDOMAIN::API
