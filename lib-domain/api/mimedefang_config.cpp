// The filter's configuration: maps of names, members of groups, one condition per disclaimer.
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "lib-domain/api/disclaimer_condition.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/api/mimedefang_unit.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/group.h"
#include "platform/include/account.h"
#include "platform/include/eai.h"
#include "platform/include/smtp_conf.h"

using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

using AliasesByUid = std::unordered_map<unsigned int, std::vector<std::string>>;

void AddName(const std::string& name, Json::Value& map) {
  std::string other;
  map[BASE::ToLowerAscii(name)] = 1;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) >= 0) {
    map[BASE::ToLowerAscii(other)] = 1;
  }
}

bool PublishedNames(Json::Value& map) {
  SmtpConf conf;
  if (conf.LoadSettings() < 0) {
    LOG_ERROR("Load smtpConf setting failed.");
    return false;
  }
  map = Json::Value(Json::objectValue);
  for (const auto& [domain_idx, name] : conf.GetMultiDomainMap()) {
    AddName(name, map);
    std::list<std::string> additional;
    if (conf.GetAdditionalDomainList(domain_idx, additional) < 0) {
      LOG_ERROR("Load smtpConf setting failed.");
      return false;
    }
    for (const std::string& further : additional) {
      AddName(further, map);
    }
  }
  return true;
}

bool StoredNames(const std::vector<RECORD::Domain>& domains, Json::Value& map) {
  map = Json::Value(Json::objectValue);
  for (const RECORD::Domain& domain : domains) {
    AddName(domain.GetDomainName(), map);
  }
  std::map<int, std::vector<std::string>> additional;
  if (!CONTROL::Domain().ListAllAdditionalDomains(additional)) {
    LOG_ERROR("get domain list failed");
    return false;
  }
  for (const auto& entry : additional) {
    for (const std::string& name : entry.second) {
      AddName(name, map);
    }
  }
  return true;
}

// Builds the tests of one domain's rules. The domain's users are read once, when a rule first needs
// them, and each group's members once.
class RuleBuilder {
 public:
  RuleBuilder(int domain_idx, Json::Value& gid_username_map)
      : domain_idx_(domain_idx), gid_username_map_(gid_username_map) {}

  // False when the rule is left out; why has been logged.
  bool Build(const Json::Value& rule, std::string& test) {
    const Json::Value& target_name = rule["target"];
    const RuleTarget target =
        target_name == Json::Value("sender") ? RuleTarget::kSender : RuleTarget::kRecipient;
    const Json::Value& type = rule["pattern_type"];
    const Json::Value& pattern = rule["pattern"];
    unsigned int id = 0;
    bool built = false;
    if (type == Json::Value("email")) {
      built = pattern.isString() && EmailTest(target, pattern.asString(), test);
    } else if (type == Json::Value("uid") && PatternAsId(pattern, id)) {
      if (!UserExists(id)) {
        return false;
      }
      std::vector<std::string> aliases;
      built = ListAliases(id, aliases) && UserTest(target, aliases, test);
    } else if (type == Json::Value("gid") && PatternAsId(pattern, id)) {
      if (!GroupExists(id)) {
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

 private:
  static bool UserExists(unsigned int uid) {
    PKORVUser user = nullptr;
    if (KORVUserGetByUID(uid, &user) < 0) {
      LOG_ERROR("Failed to get user by uid '%u'", uid);
      LOG_ERROR("Skip invalid rule since user or group may be deleted");
      return false;
    }
    KORVUserFree(user);
    return true;
  }

  static bool GroupExists(unsigned int gid) {
    PKORVGroup group = nullptr;
    if (KORVGroupGetByGID(gid, &group) < 0) {
      LOG_ERROR("Failed to get group by gid '%u'", gid);
      LOG_ERROR("Skip invalid rule since user or group may be deleted");
      return false;
    }
    KORVGroupFree(group);
    return true;
  }

  bool LoadAliases() {
    if (loaded_) {
      return true;
    }
    DB::DomainDBFilter filter;
    filter.SetLimit(-1);
    filter.SetDomainIdxs({domain_idx_});
    std::vector<RECORD::DomainUser> users;
    if (!CONTROL::DomainUser().List(filter, users)) {
      return false;
    }
    for (const RECORD::DomainUser& user : users) {
      for (const auto& pair : user.GetAliasDuplicatedPairs()) {
        aliases_[user.GetUID()].push_back(pair.first);
      }
    }
    loaded_ = true;
    return true;
  }

  // A user may have aliases in the domain and, until the next refresh, no role there: then he is
  // not among those who are read at once.
  bool ListAliases(unsigned int uid, std::vector<std::string>& aliases) {
    if (!LoadAliases()) {
      return false;
    }
    const auto found = aliases_.find(uid);
    if (found != aliases_.end()) {
      aliases = found->second;
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
  bool AddMembers(unsigned int gid) {
    if (!done_gids_.insert(gid).second) {
      return true;
    }
    std::vector<unsigned int> uids;
    if (!LoadAliases() || !CONTROL::Group().ListGroupToUsers(gid, uids)) {
      LOG_ERROR("Failed to list member for group id: %u", gid);
      done_gids_.erase(gid);
      return false;
    }
    Json::Value& members = gid_username_map_[std::to_string(gid)];
    if (!members.isObject()) {
      members = Json::Value(Json::objectValue);
    }
    for (const unsigned int uid : uids) {
      const auto found = aliases_.find(uid);
      if (found == aliases_.end()) {
        continue;
      }
      for (const std::string& alias : found->second) {
        members[BASE::ToLowerAscii(alias)] = 1;
      }
    }
    return true;
  }

  int domain_idx_;
  Json::Value& gid_username_map_;
  bool loaded_ = false;
  AliasesByUid aliases_;
  AliasesByUid aliases_without_role_;
  std::set<unsigned int> done_gids_;
};

std::string TextOf(const Json::Value& value) {
  return value.isString() ? value.asString() : "";
}

std::vector<std::string> BuildTests(RuleBuilder& builder, const Json::Value& rules,
                                    Json::Value& explained) {
  std::vector<std::string> tests;
  explained = Json::Value(Json::arrayValue);
  if (!rules.isArray()) {
    return tests;
  }
  for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
    std::string test;
    if (!rules[i].isObject() || !builder.Build(rules[i], test)) {
      continue;
    }
    Json::Value entry(Json::objectValue);
    entry["index"] = i;
    entry["test"] = test;
    explained.append(entry);
    tests.push_back(test);
  }
  return tests;
}

// False when the disclaimer does not take part; why has been logged, unless it is switched off.
bool BuildDisclaimer(RuleBuilder& builder, const Json::Value& disclaimer, Json::Value& entry) {
  if (disclaimer["enabled"] != Json::Value(true)) {
    return false;
  }
  const std::string name = TextOf(disclaimer["name"]);
  const std::string op = TextOf(disclaimer["op"]);
  if (name.empty() || (op != "and" && op != "or")) {
    LOG_ERROR("skip invalid disclaimer '%s'", name.c_str());
    return false;
  }
  entry = Json::Value(Json::objectValue);
  const auto matches = BuildTests(builder, disclaimer["match_rule_list"], entry["match"]);
  const auto exceptions =
      BuildTests(builder, disclaimer["exception_rule_list"], entry["exceptions"]);
  if (matches.empty()) {
    LOG_ERROR("Skip invalid disclaimer (no match rule)");
    return false;
  }
  std::string condition;
  JoinTests(op, matches, exceptions, condition);
  entry["condition"] = condition;
  entry["content_txt"] = TextOf(disclaimer["content_txt"]);
  entry["content_html"] = TextOf(disclaimer["content_html"]);
  entry["disabled_for_local_recipient"] =
      disclaimer["disabled_for_local_recipient"] == Json::Value(true);
  return true;
}

// The whole configuration. Entries of "disclaimer_list" also tell what they were built from, and
// "domain_id"; MimeDefang's two callers take away what is not theirs to show.
int BuildConfig(Json::Value& config) {
  const korvmailserver::AccountSnapshot snapshot;
  Json::Value result(Json::objectValue);
  std::vector<RECORD::Domain> domains;
  std::map<int, std::string> texts;
  if (!PublishedNames(result["all_domain_map"])) {
    return -1;
  }
  if (!ListAllDomains(domains)) {
    LOG_ERROR("get domain list failed");
    return -1;
  }
  if (!StoredNames(domains, result["local_domain_map"]) || !ReadStoredTexts(domains, texts)) {
    return -1;
  }
  Json::Value gid_username_map(Json::objectValue);
  Json::Value disclaimers(Json::arrayValue);
  for (const RECORD::Domain& domain : domains) {
    const int domain_idx = domain.GetDomainIdx();
    Json::Value list;
    if (ComposeList(domain_idx, texts[domain_idx], list) < 0) {
      return -1;
    }
    RuleBuilder builder(domain_idx, gid_username_map);
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
      Json::Value entry;
      if (BuildDisclaimer(builder, list[i], entry)) {
        entry["domain_id"] = domain_idx;
        entry["place"] = i;
        disclaimers.append(std::move(entry));
      }
    }
  }
  result["gid_username_map"] = std::move(gid_username_map);
  result["disclaimer_list"] = std::move(disclaimers);
  config = std::move(result);
  return 0;
}

}  // namespace

int MimeDefang::ExplainDisclaimerConfigs(int domain_idx, Json::Value& config) {
  Json::Value result;
  if (BuildConfig(result) < 0) {
    return -1;
  }
  Json::Value own(Json::arrayValue);
  for (Json::Value& entry : result["disclaimer_list"]) {
    if (entry["domain_id"] == Json::Value(domain_idx)) {
      own.append(std::move(entry));
    }
  }
  result["disclaimer_list"] = std::move(own);
  config = std::move(result);
  return 0;
}

int MimeDefang::GenDisclaimerConfigs(Json::Value& config) {
  Json::Value result;
  if (BuildConfig(result) < 0) {
    return -1;
  }
  for (Json::Value& entry : result["disclaimer_list"]) {
    for (const char* member : {"match", "exceptions", "domain_id", "place"}) {
      entry.removeMember(member);
    }
  }
  config = std::move(result);
  return 0;
}
