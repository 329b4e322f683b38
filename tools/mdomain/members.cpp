// Preview and adding go together: each user who is added gets what the preview shows.
#include "tools/mdomain/members.h"

#include <map>
#include <unordered_set>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/account.h"
#include "tools/mdomain/look_alike.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"
#include "tools/mdomain/user_output.h"

namespace mdomain {
namespace {

using MDOMAIN::RECORD::DomainUser;
using MDOMAIN::RECORD::DomainUserAlias;

std::vector<DomainUserAlias> WantedAliases(const std::vector<DomainUser>& users,
                                           const std::vector<std::string>& aliases) {
  std::vector<DomainUserAlias> wanted;
  for (const DomainUser& user : users) {
    for (const std::string& alias : aliases) {
      wanted.emplace_back(user.GetDomainIdx(), user.GetUID(), alias, false);
    }
    for (const DomainUserAlias& alias : user.ExtractDomainUserAliases()) {
      if (!aliases.empty()) {
        break;
      }
      if (alias.IsValid()) {
        wanted.push_back(alias);
        continue;
      }
      Note(user.GetUserName() + " gets no alias: \"" + alias.GetAccountAlias() +
           "\", which the domain's pattern makes, is no local part (user add --alias gives one)");
    }
  }
  return wanted;
}

// All users who were added, with the aliases that are new.
Json::Value Added(const std::vector<DomainUser>& users,
                  const std::vector<DomainUserAlias>& aliases) {
  std::map<unsigned int, Json::Value> new_aliases;
  for (const DomainUserAlias& alias : aliases) {
    new_aliases[alias.GetUID()].append(AliasJson(alias.GetAccountAlias(), alias.IsDuplicated()));
  }
  Json::Value records(Json::arrayValue);
  for (const DomainUser& user : users) {
    Json::Value record = CandidateJson(user.GetUID(), user.GetUserName());
    if (const auto found = new_aliases.find(user.GetUID()); found != new_aliases.end()) {
      record["aliases"] = found->second;
    }
    records.append(record);
  }
  return records;
}

}  // namespace

void RefuseInternal(const std::vector<MDOMAIN::RECORD::User>& users,
                    const std::vector<DomainUser>& preview) {
  std::unordered_set<unsigned int> shown;
  for (const DomainUser& user : preview) {
    shown.insert(user.GetUID());
  }
  for (const auto& user : users) {
    if (shown.count(user.GetUID()) == 0 && KORVUserIsInternal(user.GetUserName().c_str())) {
      throw Failure(kRefused, "\"" + user.GetUserName() +
                                  "\" is an internal account and cannot be in a domain");
    }
  }
}

std::vector<DomainUser> PreviewMembers(const KnownDomain& domain, const Members& members) {
  std::vector<std::pair<std::string, std::string>> entries;
  for (const std::string& name : ShortNames(members.users)) {
    entries.emplace_back("user", name);
  }
  for (const std::string& name : ShortNames(members.groups)) {
    entries.emplace_back("group", name);
  }
  std::vector<DomainUser> preview;
  const bool made = MDOMAIN::API::DomainUser().Preview(domain.idx, entries, preview);
  RefuseInternal(members.users, preview);  // a wrong account is told before a failing pattern
  if (!made) {
    throw Failure(kFailed, "the aliases for domain " + domain.Title() + " could not be made");
  }
  return preview;
}

void AddMembers(Call& call, const KnownDomain& domain, const Members& members,
                const std::vector<std::string>& aliases) {
  const std::vector<DomainUser> preview = PreviewMembers(domain, members);
  std::vector<DomainUserAlias> added = WantedAliases(preview, aliases);
  std::vector<std::string> added_aliases;
  added_aliases.reserve(added.size());
  for (const DomainUserAlias& alias : added) {
    added_aliases.push_back(alias.GetAccountAlias());
  }
  const LookAlikes look_alikes(domain.idx, added_aliases);
  MDOMAIN::API::DomainUser api;
  if (!api.AddMembers(domain.idx, ShortNames(members.users), ShortNames(members.groups), added)) {
    throw ApiFailure(api.GetErrorCode(), "adding to domain " + domain.Title());
  }
  Json::Value records = Added(preview, added);
  for (Json::Value& record : records) {
    look_alikes.Warn(record);
  }
  call.out().List(records, CandidateColumns());
}

void RequireRole(const std::string& role) {
  if (!MDOMAIN::UTILS::CheckRoleValid(role)) {
    throw Failure(kRefused, "\"" + role + "\" is no role: normal or domain_admin");
  }
}

}  // namespace mdomain
