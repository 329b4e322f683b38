#include "lib-domain/api/alias_entry.h"

#include <algorithm>

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

AliasEntry::Result AliasEntry::_Refuse(Result result, const std::string& problem) {
  problem_ = problem;
  return result;
}

}  // namespace MDOMAIN::API
