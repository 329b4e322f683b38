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

// Whether the account exists: kBuilt, else with log lines. `what` names the kind of account and of
// id, for the log. A source that does not answer has not said that anybody is gone.
template <typename Account>
RuleOutcome Look(int (*get)(unsigned int, Account**), void (*release)(Account*), int no_such,
                 unsigned int id, const char* what) {
  Account* account = nullptr;
  if (get(id, &account) >= 0) {
    release(account);
    return RuleOutcome::kBuilt;
  }
  LOG_ERROR("Failed to get %s '%u'", what, id);
  if (KLIBCErrGet() != no_such) {
    LOG_ERROR("The account system does not tell whether '%u' exists", id);
    return RuleOutcome::kUnknown;
  }
  LOG_ERROR("Skip invalid rule since user or group may be deleted");
  return RuleOutcome::kLeftOut;
}

RuleOutcome BuiltOrInvalid(bool is_built, const std::string& test, Json::Value& built) {
  if (!is_built) {
    LOG_ERROR("invalid rule, skipped.");
  }
  built["test"] = test;
  return is_built ? RuleOutcome::kBuilt : RuleOutcome::kLeftOut;
}

RuleOutcome BuildEmail(RuleTarget target, const Json::Value& pattern, Json::Value& built) {
  std::string ascii;
  std::string utf8;
  std::string test;
  const bool is_built = pattern.isString() && EmailTest(target, pattern.asString(), test) &&
                        EmailGlobs(pattern.asString(), ascii, utf8);
  built["globs"].append(ascii);
  built["globs"].append(utf8);
  return BuiltOrInvalid(is_built, test, built);
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

RuleOutcome RuleBuilder::Build(const Json::Value& rule, Json::Value& built) {
  const RuleTarget target =
      rule["target"] == Json::Value("sender") ? RuleTarget::kSender : RuleTarget::kRecipient;
  const Json::Value& type = rule["pattern_type"];
  const Json::Value& pattern = rule["pattern"];
  unsigned int id = 0;
  built["target"] = target == RuleTarget::kSender ? "sender" : "recipient";
  if (type == Json::Value("uid") && PatternAsId(pattern, id)) {
    return BuildUser(target, id, built);
  }
  if (type == Json::Value("gid") && PatternAsId(pattern, id)) {
    return BuildGroup(target, id, built);
  }
  return type == Json::Value("email") ? BuildEmail(target, pattern, built)
                                      : BuiltOrInvalid(false, "", built);
}

RuleOutcome RuleBuilder::BuildUser(RuleTarget target, unsigned int uid, Json::Value& built) {
  const RuleOutcome found =
      Look(KORVUserGetByUID, KORVUserFree, KLIB_ERR_NO_SUCH_USER, uid, "user by uid");
  if (found != RuleOutcome::kBuilt) {
    return found;
  }
  std::vector<std::string> aliases;
  if (!ListAliases(uid, aliases)) {
    LOG_ERROR("Failed to list aliases for user id: %u", uid);
    return RuleOutcome::kUnknown;
  }
  for (const std::string& alias : aliases) {
    built["aliases"].append(alias);
  }
  std::string test;
  return BuiltOrInvalid(UserTest(target, aliases, test), test, built);
}

RuleOutcome RuleBuilder::BuildGroup(RuleTarget target, unsigned int gid, Json::Value& built) {
  const RuleOutcome found =
      Look(KORVGroupGetByGID, KORVGroupFree, KLIB_ERR_NO_SUCH_GROUP, gid, "group by gid");
  if (found != RuleOutcome::kBuilt) {
    return found;
  }
  if (!AddMembers(gid)) {
    return RuleOutcome::kUnknown;
  }
  built["gid"] = std::to_string(gid);
  built["test"] = GroupTest(target, gid);
  return RuleOutcome::kBuilt;
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
