// The filter's configuration: maps of names, members of groups, one condition per disclaimer.
#include <map>
#include <string>

#include "lib-domain/api/disclaimer/condition.h"
#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/rules.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/record/domain.h"
#include "platform/include/account.h"
#include "platform/include/eai.h"
#include "platform/include/smtp_conf.h"

using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

namespace {

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

// False when the disclaimer takes no part: it is switched off, or a log line says what is wrong.
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

bool ReadRules(const std::vector<RECORD::Domain>& domains, std::vector<DomainRules>& rules) {
  std::map<int, std::string> texts;
  if (!ReadStoredTexts(domains, texts)) {
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    rules.push_back({domain.GetDomainIdx(), Json::Value()});
    if (ComposeList(domain.GetDomainIdx(), texts[domain.GetDomainIdx()], rules.back().list) < 0) {
      return false;
    }
  }
  return true;
}

// Entries also tell what they were built from, and "domain_id".
void BuildDisclaimers(const std::vector<DomainRules>& domains, DisclaimerMembers& members,
                      Json::Value& config) {
  Json::Value gid_username_map(Json::objectValue);
  Json::Value disclaimers(Json::arrayValue);
  for (const DomainRules& domain : domains) {
    RuleBuilder builder(domain.domain_idx, members, gid_username_map);
    for (Json::ArrayIndex i = 0; i < domain.list.size(); ++i) {
      Json::Value entry;
      if (BuildDisclaimer(builder, domain.list[i], entry)) {
        entry["domain_id"] = domain.domain_idx;
        entry["place"] = i;
        disclaimers.append(std::move(entry));
      }
    }
  }
  config["gid_username_map"] = std::move(gid_username_map);
  config["disclaimer_list"] = std::move(disclaimers);
}

// The whole configuration; each of the two callers removes what it does not show.
int BuildConfig(Json::Value& config) {
  const korvmailserver::AccountSnapshot snapshot;
  Json::Value result(Json::objectValue);
  std::vector<RECORD::Domain> domains;
  std::vector<DomainRules> rules;
  DisclaimerMembers members;
  if (!PublishedNames(result["all_domain_map"])) {
    return -1;
  }
  if (!ListAllDomains(domains)) {
    return -1;
  }
  if (!StoredNames(domains, result["local_domain_map"]) || !ReadRules(domains, rules) ||
      !members.Load(rules)) {
    return -1;
  }
  BuildDisclaimers(rules, members, result);
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
