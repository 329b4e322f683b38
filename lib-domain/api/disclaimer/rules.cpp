#include "lib-domain/api/disclaimer/rules.h"

#include <algorithm>
#include <utility>

#include "lib-domain/api/disclaimer/condition.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/group.h"
#include "lib-domain/db/domain_user.h"
#include "platform/include/account.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

bool HasAccountRule(const Json::Value& rules) {
  return rules.isArray() && std::any_of(rules.begin(), rules.end(), [](const Json::Value& rule) {
           return rule.isObject() && rule["pattern_type"] != Json::Value("email");
         });
}

bool NamesAccounts(const Json::Value& disclaimer) {
  return disclaimer["enabled"] == Json::Value(true) &&
         (HasAccountRule(disclaimer["match_rule_list"]) ||
          HasAccountRule(disclaimer["exception_rule_list"]));
}

// `what` names the kind of account and of id, for the log.
template <typename Account>
bool Exists(int (*get)(unsigned int, Account**), void (*release)(Account*), unsigned int id,
            const char* what) {
  Account* account = nullptr;
  if (get(id, &account) < 0) {
    LOG_ERROR("Failed to get %s '%u'", what, id);
    LOG_ERROR("Skip invalid rule since user or group may be deleted");
    return false;
  }
  release(account);
  return true;
}

}  // namespace

bool DisclaimerMembers::Load(const std::vector<DomainRules>& domains) {
  std::vector<int> domain_idxs;
  for (const DomainRules& domain : domains) {
    if (std::any_of(domain.list.begin(), domain.list.end(), NamesAccounts)) {
      domain_idxs.push_back(domain.domain_idx);
    }
  }
  std::vector<RECORD::DomainUserAlias> aliases;
  if (!domain_idxs.empty() && !DB::DomainUser().ListDomainUsersAliases(domain_idxs, aliases)) {
    return false;
  }
  for (const RECORD::DomainUserAlias& alias : aliases) {
    aliases_[alias.GetDomainIdx()][alias.GetUID()].push_back(alias.GetAccountAlias());
  }
  return true;
}

const std::vector<std::string>* DisclaimerMembers::AliasesOf(int domain_idx,
                                                             unsigned int uid) const {
  const auto domain = aliases_.find(domain_idx);
  if (domain == aliases_.end()) {
    return nullptr;
  }
  const auto user = domain->second.find(uid);
  return user == domain->second.end() ? nullptr : &user->second;
}

const std::vector<unsigned int>* DisclaimerMembers::MembersOf(unsigned int gid) {
  const auto found = uids_by_gid_.find(gid);
  if (found != uids_by_gid_.end()) {
    return &found->second;
  }
  std::vector<unsigned int> uids;
  if (!CONTROL::Group().ListGroupToUsers(gid, uids)) {
    return nullptr;
  }
  return &uids_by_gid_.emplace(gid, std::move(uids)).first->second;
}

bool RuleBuilder::Build(const Json::Value& rule, std::string& test) {
  const RuleTarget target =
      rule["target"] == Json::Value("sender") ? RuleTarget::kSender : RuleTarget::kRecipient;
  const Json::Value& type = rule["pattern_type"];
  const Json::Value& pattern = rule["pattern"];
  unsigned int id = 0;
  bool built = false;
  if (type == Json::Value("email")) {
    built = pattern.isString() && EmailTest(target, pattern.asString(), test);
  } else if (type == Json::Value("uid") && PatternAsId(pattern, id)) {
    if (!Exists(KORVUserGetByUID, KORVUserFree, id, "user by uid")) {
      return false;
    }
    std::vector<std::string> aliases;
    built = ListAliases(id, aliases) && UserTest(target, aliases, test);
  } else if (type == Json::Value("gid") && PatternAsId(pattern, id)) {
    if (!Exists(KORVGroupGetByGID, KORVGroupFree, id, "group by gid")) {
      return false;
    }
    built = AddMembers(id);
    test = GroupTest(target, id);
  }
  if (!built) {
    LOG_ERROR("invalid rule, skipped.");
  }
  return built;
}

// A user with aliases in the domain may have no role there until the next refresh, and is then not
// among the domain's users.
bool RuleBuilder::ListAliases(unsigned int uid, std::vector<std::string>& aliases) {
  const std::vector<std::string>* known = members_.AliasesOf(domain_idx_, uid);
  if (known != nullptr) {
    aliases = *known;
    return true;
  }
  const auto entry = aliases_without_role_.try_emplace(uid);
  if (entry.second &&
      !CONTROL::DomainUser().GetDomainUserAlias(domain_idx_, uid, entry.first->second)) {
    return false;
  }
  aliases = entry.first->second;
  return true;
}

// The aliases of the group's members in the domain. The filter lower-cases what it looks up.
bool RuleBuilder::AddMembers(unsigned int gid) {
  if (done_gids_.count(gid) != 0) {
    return true;
  }
  const std::vector<unsigned int>* uids = members_.MembersOf(gid);
  if (uids == nullptr) {
    LOG_ERROR("Failed to list member for group id: %u", gid);
    return false;
  }
  done_gids_.insert(gid);
  Json::Value& names = gid_username_map_[std::to_string(gid)];
  if (!names.isObject()) {
    names = Json::Value(Json::objectValue);
  }
  for (const unsigned int uid : *uids) {
    const std::vector<std::string>* aliases = members_.AliasesOf(domain_idx_, uid);
    if (aliases == nullptr) {
      continue;
    }
    for (const std::string& alias : *aliases) {
      names[BASE::ToLowerAscii(alias)] = 1;
    }
  }
  return true;
}

}  // namespace MDOMAIN::API::INTERNAL
