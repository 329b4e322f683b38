// What may stand wrong in the model and beside it although every file is whole.
#include <json/reader.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/doctor.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::Statement;
using MDOMAIN::DB::INTERNAL::Reader;
using Values = std::map<std::string, std::string>;

struct Rule {
  const char* sql;  // gives a row for each thing that is wrong
  const char* text;
  const char* cure;
};

constexpr Rule kRules[] = {
    {"SELECT count(*) FROM primary_domain_table HAVING count(*) > 1",
     "so many domains are the primary one: ", "mdomain domain primary DOMAIN"},
    {"SELECT name FROM (SELECT lower(domain_name) AS name FROM domain_table UNION ALL"
     " SELECT lower(additional_domain) FROM domain_to_additional_domain_table)"
     " GROUP BY name HAVING count(*) > 1",
     "more than one domain has the name ", "mdomain domain names remove, or domain set --name"},
    {"SELECT role FROM domain_user_role_table UNION SELECT role FROM domain_group_role_table"
     " EXCEPT SELECT 'normal' EXCEPT SELECT 'domain_admin'",
     "somebody has a role that there is not: ",
     "mdomain user set --role, mdomain group set --role"},
};

void CheckModelRules(Findings& findings) {
  Reader reader(ModelPath());
  if (!reader.Open()) {
    return;  // the check of the files tells it
  }
  for (const Rule& rule : kRules) {
    reader.ForEachRow(rule.sql, [&](const Statement& row) {
      findings.push_back({"model", true, rule.text + row.Text(0), rule.cure});
    });
  }
}

std::string ValueOf(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? "" : found->second;
}

using Texts = std::set<std::string>;

Texts Elements(const std::string& joined) {
  Texts elements;
  for (size_t begin = 0; begin < joined.size();) {
    const size_t end = std::min(joined.find(", ", begin), joined.size());
    elements.insert(joined.substr(begin, end - begin));
    begin = end + 2;
  }
  return elements;
}

std::string Listed(const Texts& texts) {
  return texts.empty() ? "nothing" : FirstOf({texts.begin(), texts.end()});
}

// What the mail services read of the domains, by key.
std::map<std::string, Texts> WantedKeys(const Domains& domains) {
  std::map<std::string, Texts> wanted;
  for (const KnownDomain& domain : domains.all()) {
    const std::string idx = std::to_string(domain.idx);
    wanted["virtual_multiple_domain"].insert(idx + "/" + domain.name);
    wanted["additional_domain-" + idx] = {domain.additional_names.begin(),
                                          domain.additional_names.end()};
    if (domain.is_primary) {
      wanted["smtp_main_domain"].insert(domain.name);
    }
  }
  return wanted;
}

void CheckPublished(const Domains& domains, const Values& values, Findings& findings) {
  const auto tell = [&](const std::string& key, const std::string& has, const std::string& wanted) {
    findings.push_back(
        {"published", true,
         "the mail services read " + has + " in " + key + ", and the model has " + wanted,
         "mdomain publish"});
  };
  const std::map<std::string, Texts> wanted = WantedKeys(domains);
  for (const auto& [key, texts] : wanted) {
    const Texts published = Elements(ValueOf(values, key));
    if (published != texts) {
      tell(key, Listed(published), Listed(texts));
    }
  }
  for (const auto& [key, value] : values) {
    if (key.rfind("additional_domain-", 0) == 0 && wanted.count(key) == 0 && !value.empty()) {
      tell(key, value, "no such domain");
    }
  }
  // The model itself, for programs that open it.
  for (const char* key : {"mailserver_domain_db", "mdomain_model"}) {
    if (ValueOf(values, key).empty()) {
      tell(key, "nothing", "a file");
    }
  }
}

// Size of a file; -1 without it.
long long SizeOf(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_size : -1;
}

void CheckKeys(const Domains& domains, const Values& values, Findings& findings) {
  for (const KnownDomain& domain : domains.all()) {
    const std::string idx = std::to_string(domain.idx);
    const std::string begin = MDOMAIN::PATHS::EtcDir() + "dkim.key/dkim.";
    for (const std::string& path : {begin + "private-" + idx, begin + "public-" + idx}) {
      const long long size = SizeOf(path);
      if (size == 0 || (size < 0 && ValueOf(values, "enable_dkim_sign-" + idx) == "yes")) {
        findings.push_back({"dkim", true,
                            path + (size == 0 ? " is empty" : " is missing") +
                                ": a DKIM key of domain " + domain.Title(),
                            "put the key back from a backup or a folder kept-*, or have the mail "
                            "server make a new pair"});
      }
    }
  }
}

// The ids in the rules of a list of disclaimers, as texts.
void CollectIds(const Json::Value& list, std::map<std::string, Texts>& ids) {
  for (const Json::Value& disclaimer : list) {
    for (const char* rules : {"match_rule_list", "exception_rule_list"}) {
      for (const Json::Value& rule : disclaimer[rules]) {
        ids[rule["pattern_type"].asString()].insert(rule["pattern"].asString());
      }
    }
  }
}

// Those of the ids that the query of all ids does not give.
Texts Unknown(const Reader& model, const char* all, const Texts& ids) {
  Texts unknown = ids;
  if (!ids.empty()) {
    model.ForEachRow(all, [&](const Statement& row) { unknown.erase(row.Text(0)); });
  }
  return unknown;
}

Json::Value ParseList(const std::string& text) {
  Json::Value list;
  std::istringstream stream(text);
  std::string error;
  return Json::parseFromStream(Json::CharReaderBuilder(), stream, &list, &error) && list.isArray()
             ? list
             : Json::Value(Json::arrayValue);
}

void CheckDisclaimers(const Domains& domains, const Values& values, Findings& findings) {
  std::map<std::string, Texts> ids;
  for (const KnownDomain& domain : domains.all()) {
    const std::string idx = std::to_string(domain.idx);
    const Json::Value list = ParseList(ValueOf(values, "mimedefang_disclaimers-" + idx));
    CollectIds(list, ids);
    if (!list.empty() && SizeOf(MDOMAIN::PATHS::DisclaimerDir() + "/domain-" + idx) < 0) {
      findings.push_back(
          {"disclaimer-list", true,
           "the texts of the disclaimers of domain " + domain.Title() + " are missing",
           "put disclaimer_content/domain-" + idx +
               " back from a backup, or mdomain disclaimer set"});
    }
  }
  Reader model(ModelPath());
  if (!model.Open()) {
    return;
  }
  const std::map<std::string, const char*> queries = {{"uid", "SELECT uid FROM user_table"},
                                                      {"gid", "SELECT gid FROM group_table"}};
  for (const auto& [kind, all] : queries) {
    const Texts unknown = Unknown(model, all, ids[kind]);
    if (!unknown.empty()) {
      findings.push_back({"disclaimer-list", false,
                          "rules of disclaimers name a " + kind +
                              " that nobody has: " + FirstOf({unknown.begin(), unknown.end()}),
                          "mdomain disclaimer set, without these rules"});
    }
  }
}

}  // namespace

void CheckRules(Findings& findings) {
  const Domains domains;
  if (domains.all().empty()) {
    return;
  }
  CheckModelRules(findings);
  Values values;
  if (mailConfList(values) < 0) {
    findings.push_back({"key-store", true, "the key store cannot be read", "look at its messages"});
    return;
  }
  CheckPublished(domains, values, findings);
  CheckKeys(domains, values, findings);
  CheckDisclaimers(domains, values, findings);
}

}  // namespace mdomain
