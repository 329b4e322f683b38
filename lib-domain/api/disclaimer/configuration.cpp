// The filter's configuration: maps of names, members of groups, one condition per disclaimer.
#include <algorithm>
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

// The tests of one list of rules.
struct Tests {
  std::vector<std::string> texts;
  Json::Value built{Json::arrayValue};     // of each test: place, text and what it compares
  Json::Value left_out{Json::arrayValue};  // places of rules that have no test
};

// False when an account system that does not answer keeps a rule from being built: the text would
// go where an exception forbids it.
bool BuildTests(RuleBuilder& builder, const Json::Value& rules, Tests& tests) {
  for (Json::ArrayIndex i = 0; rules.isArray() && i < rules.size(); ++i) {
    Json::Value entry(Json::objectValue);
    const RuleOutcome outcome =
        rules[i].isObject() ? builder.Build(rules[i], entry) : RuleOutcome::kLeftOut;
    if (outcome == RuleOutcome::kUnknown) {
      return false;
    }
    if (outcome == RuleOutcome::kLeftOut) {
      tests.left_out.append(i);
      continue;
    }
    entry["index"] = i;
    tests.texts.push_back(entry["test"].asString());
    tests.built.append(std::move(entry));
  }
  return true;
}

// One that wants all its match rules applies to more mail when it has lost some.
void WarnOfLostRules(const std::string& name, const std::string& op, const Tests& matches) {
  if (op == "and" && !matches.left_out.empty() && !matches.texts.empty()) {
    LOG_WARNING("disclaimer '%s' wants all of its match rules, of which %u could not be used",
                name.c_str(), matches.left_out.size());
  }
}

enum class Outcome { kDone, kLeftOut, kFailed };

// kLeftOut when the disclaimer takes no part: it is switched off, or a log line says what is wrong.
Outcome BuildDisclaimer(RuleBuilder& builder, const Json::Value& disclaimer, Json::Value& entry) {
  if (disclaimer["enabled"] != Json::Value(true)) {
    return Outcome::kLeftOut;
  }
  const std::string name = TextOf(disclaimer["name"]);
  const std::string op = TextOf(disclaimer["op"]);
  if (name.empty() || (op != "and" && op != "or")) {
    LOG_ERROR("skip invalid disclaimer '%s'", name.c_str());
    return Outcome::kLeftOut;
  }
  Tests matches;
  Tests exceptions;
  if (!BuildTests(builder, disclaimer["match_rule_list"], matches) ||
      !BuildTests(builder, disclaimer["exception_rule_list"], exceptions)) {
    return Outcome::kFailed;
  }
  if (matches.texts.empty()) {
    LOG_ERROR("Skip invalid disclaimer (no match rule)");
    return Outcome::kLeftOut;
  }
  WarnOfLostRules(name, op, matches);
  std::string condition;
  JoinTests(op, matches.texts, exceptions.texts, condition);
  entry = Json::Value(Json::objectValue);
  entry["condition"] = condition;
  entry["op"] = op;
  entry["content_txt"] = TextOf(disclaimer["content_txt"]);
  entry["content_html"] = TextOf(disclaimer["content_html"]);
  entry["disabled_for_local_recipient"] =
      disclaimer["disabled_for_local_recipient"] == Json::Value(true);
  entry["match"] = std::move(matches.built);
  entry["exceptions"] = std::move(exceptions.built);
  entry["match_left_out"] = std::move(matches.left_out);
  entry["exceptions_left_out"] = std::move(exceptions.left_out);
  return Outcome::kDone;
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
bool BuildDisclaimers(const std::vector<DomainRules>& domains, DisclaimerMembers& members,
                      Json::Value& config) {
  Json::Value gid_username_map(Json::objectValue);
  Json::Value disclaimers(Json::arrayValue);
  for (const DomainRules& domain : domains) {
    RuleBuilder builder(domain.domain_idx, members, gid_username_map);
    for (Json::ArrayIndex i = 0; i < domain.list.size(); ++i) {
      Json::Value entry;
      const Outcome outcome = BuildDisclaimer(builder, domain.list[i], entry);
      if (outcome == Outcome::kFailed) {
        LOG_ERROR("disclaimer '%s' of domain_id[%d] cannot be worked out now, no configuration",
                  TextOf(domain.list[i]["name"]).c_str(), domain.domain_idx);
        return false;
      }
      if (outcome == Outcome::kDone) {
        entry["domain_id"] = domain.domain_idx;
        entry["place"] = i;
        disclaimers.append(std::move(entry));
      }
    }
  }
  config["gid_username_map"] = std::move(gid_username_map);
  config["disclaimer_list"] = std::move(disclaimers);
  return true;
}

constexpr int kAllDomains = -1;

// The configuration with the disclaimers of one domain or all; each of the two callers removes what
// it does not show.
int BuildConfig(int wanted, Json::Value& config) {
  const korvmailserver::AccountSnapshot snapshot;
  Json::Value result(Json::objectValue);
  std::vector<RECORD::Domain> domains;
  if (!PublishedNames(result["all_domain_map"]) || !ListAllDomains(domains) ||
      !StoredNames(domains, result["local_domain_map"])) {
    return -1;
  }
  if (wanted != kAllDomains) {
    const auto other = [wanted](const RECORD::Domain& d) { return d.GetDomainIdx() != wanted; };
    domains.erase(std::remove_if(domains.begin(), domains.end(), other), domains.end());
  }
  std::vector<DomainRules> rules;
  DisclaimerMembers members;
  if (!ReadRules(domains, rules) || !members.Load(rules) ||
      !BuildDisclaimers(rules, members, result)) {
    return -1;
  }
  config = std::move(result);
  return 0;
}

}  // namespace

int MimeDefang::ExplainDisclaimerConfigs(int domain_idx, Json::Value& config) {
  return BuildConfig(domain_idx, config);
}

int MimeDefang::GenDisclaimerConfigs(Json::Value& config) {
  Json::Value result;
  if (BuildConfig(kAllDomains, result) < 0) {
    return -1;
  }
  for (Json::Value& entry : result["disclaimer_list"]) {
    for (const char* member : {"match", "exceptions", "match_left_out", "exceptions_left_out",
                               "domain_id", "place", "op"}) {
      entry.removeMember(member);
    }
  }
  config = std::move(result);
  return 0;
}
