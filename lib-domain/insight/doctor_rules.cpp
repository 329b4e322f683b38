// What may stand wrong in the model and beside it although every file is whole.
#include "lib-domain/insight/doctor.h"

#include <json/reader.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/sentence.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/reader.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::INSIGHT::INTERNAL {

namespace {

using DB::INTERNAL::Reader;
using korvmailserver::Statement;
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

std::string ValueOf(const Values& values, const std::string& key) {
  const auto found = values.find(key);
  return found == values.end() ? "" : found->second;
}

using Texts = std::set<std::string>;

constexpr const char* kDomainsKey = "virtual_multiple_domain";

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
  return texts.empty() ? "nothing" : BASE::FirstOf({texts.begin(), texts.end()});
}

// What the mail services read of the domains, by key.
std::map<std::string, Texts> WantedKeys(const std::vector<KnownDomain>& domains) {
  std::map<std::string, Texts> wanted;
  for (const KnownDomain& domain : domains) {
    const std::string idx = std::to_string(domain.idx);
    wanted[kDomainsKey].insert(idx + "/" + domain.name);
    wanted["additional_domain-" + idx] = {domain.additional_names.begin(),
                                          domain.additional_names.end()};
    if (domain.is_primary) {
      wanted["smtp_main_domain"].insert(domain.name);
    }
  }
  return wanted;
}

// Those of the published domains that have the index of one of these.
Texts OfDomains(const std::vector<KnownDomain>& domains, const Texts& published) {
  Texts own;
  for (const KnownDomain& domain : domains) {
    const std::string begin = std::to_string(domain.idx) + "/";
    std::copy_if(published.begin(), published.end(), std::inserter(own, own.end()),
                 [&begin](const std::string& text) { return text.rfind(begin, 0) == 0; });
  }
  return own;
}

void CheckPublished(const std::vector<KnownDomain>& domains, bool is_all, const Values& values,
                    Findings& findings) {
  const auto tell = [&](const std::string& key, const std::string& has, const std::string& wanted) {
    int domain = 0;
    BASE::ConvertToInt(key.substr(key.rfind('-') + 1), domain);
    findings.push_back(
        {"published", true,
         "the mail services read " + has + " in " + key + ", and the model has " + wanted,
         "mdomain publish", domain});
  };
  const std::map<std::string, Texts> wanted = WantedKeys(domains);
  for (const auto& [key, texts] : wanted) {
    Texts published = Elements(ValueOf(values, key));
    if (!is_all && key == kDomainsKey) {
      published = OfDomains(domains, published);
    }
    if (published != texts) {
      tell(key, Listed(published), Listed(texts));
    }
  }
  if (!is_all) {
    return;
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

void CheckKeys(const std::vector<KnownDomain>& domains, const Values& values, Findings& findings) {
  for (const KnownDomain& domain : domains) {
    const std::string idx = std::to_string(domain.idx);
    for (const char* half : {"private-", "public-"}) {
      const std::string path = PATHS::EtcDir() + "dkim.key/dkim." + half + idx;
      const long long size = SizeOf(path);
      if (size == 0 || (size < 0 && ValueOf(values, "enable_dkim_sign-" + idx) == "yes")) {
        findings.push_back({"dkim", true,
                            path + (size == 0 ? " is empty" : " is missing") +
                                ": a DKIM key of domain " + domain.Title(),
                            "put the key back from a backup or a folder kept-*, or have the mail "
                            "server make a new pair",
                            domain.idx});
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

void CheckDisclaimers(const std::vector<KnownDomain>& domains, const Values& values,
                      Findings& findings) {
  std::map<std::string, Texts> ids;
  for (const KnownDomain& domain : domains) {
    const std::string idx = std::to_string(domain.idx);
    const Json::Value list = ParseList(ValueOf(values, "mimedefang_disclaimers-" + idx));
    CollectIds(list, ids);
    if (!list.empty() && SizeOf(PATHS::DisclaimerDir() + "/domain-" + idx) < 0) {
      findings.push_back(
          {"disclaimer-list", true,
           "the texts of the disclaimers of domain " + domain.Title() + " are missing",
           "put disclaimer_content/domain-" + idx +
               " back from a backup, or mdomain disclaimer set",
           domain.idx});
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
                          "rules of disclaimers name a " + kind + " that nobody has: " +
                              BASE::FirstOf({unknown.begin(), unknown.end()}),
                          "mdomain disclaimer set, without these rules"});
    }
  }
}

}  // namespace

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

void CheckPublications(const std::vector<KnownDomain>& domains, bool is_all, Findings& findings) {
  Values values;
  if (mailConfList(values) < 0) {
    findings.push_back({"key-store", true, "the key store cannot be read", "look at its messages"});
    return;
  }
  CheckPublished(domains, is_all, values, findings);
  CheckKeys(domains, values, findings);
  CheckDisclaimers(domains, values, findings);
}

}  // namespace MDOMAIN::INSIGHT::INTERNAL
