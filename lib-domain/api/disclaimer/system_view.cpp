// The disclaimers of all domains as one value.
#include "lib-domain/api/disclaimer/system_view.h"

#include <algorithm>
#include <map>
#include <set>

#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/record/domain.h"
#include "platform/include/eai.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

// "domain_id" of an element: a number, or a text that is one.
bool DomainIdOf(const Json::Value& element, int& domain_idx) {
  const Json::Value& id = element["domain_id"];
  if (id.isInt()) {
    domain_idx = id.asInt();
    return true;
  }
  return id.isString() && BASE::ConvertToInt(id.asString(), domain_idx);
}

// The form in which names are compared.
std::string AsciiName(const std::string& name) {
  std::string ascii;
  return KORV::POSTARA_SERVER::ConvertToPunycode(name, ascii) < 0 ? BASE::ToLowerAscii(name)
                                                                  : ascii;
}

// The domains by all of their names.
bool IndexesByName(std::map<std::string, int>& indexes) {
  std::vector<RECORD::Domain> domains;
  std::map<int, std::vector<std::string>> additional;
  if (!ListAllDomains(domains)) {
    return false;
  }
  if (!CONTROL::Domain().ListAllAdditionalDomains(additional)) {
    LOG_ERROR("get domain list failed");
    return false;
  }
  for (const RECORD::Domain& domain : domains) {
    indexes[AsciiName(domain.GetDomainName())] = domain.GetDomainIdx();
    for (const std::string& name : additional[domain.GetDomainIdx()]) {
      indexes[AsciiName(name)] = domain.GetDomainIdx();
    }
  }
  return true;
}

std::map<int, Json::Value> ListsByDomain(const Json::Value& all) {
  std::map<int, Json::Value> lists;
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    if (!element["disclaimer_list"].empty() && DomainIdOf(element, domain_idx)) {
      lists[domain_idx] = element["disclaimer_list"];
    }
  }
  return lists;
}

}  // namespace

bool AddDomainNames(Json::Value& all) {
  std::vector<RECORD::Domain> domains;
  if (!ListAllDomains(domains)) {
    return false;
  }
  std::map<int, std::string> names;
  for (const RECORD::Domain& domain : domains) {
    names[domain.GetDomainIdx()] = domain.GetDomainName();
  }
  for (Json::Value& element : all) {
    int domain_idx = 0;
    if (DomainIdOf(element, domain_idx) && names.count(domain_idx) != 0) {
      element["domain_name"] = names[domain_idx];
    }
  }
  return true;
}

bool TakeIndexesByName(Json::Value& all) {
  std::map<std::string, int> indexes;
  if (!IndexesByName(indexes)) {
    return false;
  }
  std::set<int> taken;
  for (Json::Value& element : all) {
    if (!element["domain_name"].isString()) {
      continue;
    }
    const std::string name = element["domain_name"].asString();
    const auto found = indexes.find(AsciiName(name));
    const bool usable = found != indexes.end() && taken.insert(found->second).second;
    if (usable) {
      element["domain_id"] = found->second;
    } else if (element["disclaimer_list"].empty()) {
      element.removeMember("disclaimer_list");
    } else {
      LOG_ERROR("there is no domain [%s] to have these disclaimers", name.c_str());
      return false;
    }
  }
  return true;
}

bool HaveSameDisclaimers(const Json::Value& a, const Json::Value& b) {
  return ListsByDomain(a) == ListsByDomain(b);
}

bool CheckSystemView(const Json::Value& all, std::string& error) {
  if (!IsArrayOfObjects(all)) {
    error = "not an array of objects";
    return false;
  }
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    const Json::Value& list = element["disclaimer_list"];
    if (!list.isArray()) {
      continue;
    }
    if (!DomainIdOf(element, domain_idx)) {
      error = "an element has no \"domain_id\"";
      return false;
    }
    if (!IsArrayOfObjects(list)) {
      error = "domain " + std::to_string(domain_idx) + " has a disclaimer that is no object";
      return false;
    }
  }
  return true;
}

bool NamesDomains(const Json::Value& all) {
  return std::all_of(all.begin(), all.end(), [](const Json::Value& element) {
    int domain_idx = 0;
    return DomainIdOf(element, domain_idx);
  });
}

bool AreDomainsKnown(const Json::Value& all) {
  std::vector<RECORD::Domain> domains;
  if (!ListAllDomains(domains)) {
    return false;
  }
  std::set<int> known;
  for (const RECORD::Domain& domain : domains) {
    known.insert(domain.GetDomainIdx());
  }
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    if (!element["disclaimer_list"].empty() && DomainIdOf(element, domain_idx) &&
        known.count(domain_idx) == 0) {
      LOG_ERROR("Failed to set Config, domain_id[%d]", domain_idx);
      return false;
    }
  }
  return true;
}

}  // namespace MDOMAIN::API::INTERNAL

using namespace MDOMAIN;                 // NOLINT(google-build-using-namespace)
using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

int MimeDefang::GetSystemAllDisclaimerList(Json::Value& all) {
  std::vector<RECORD::Domain> domains;
  std::map<int, std::string> texts;
  if (!ReadAllStoredTexts(domains, texts)) {
    return -1;
  }
  Json::Value result(Json::arrayValue);
  for (const RECORD::Domain& domain : domains) {
    const int domain_idx = domain.GetDomainIdx();
    Json::Value element(Json::objectValue);
    element["domain_id"] = domain_idx;
    if (ComposeList(domain_idx, texts[domain_idx], element["disclaimer_list"]) < 0) {
      return -1;
    }
    result.append(element);
  }
  all = result;
  return 0;
}

int MimeDefang::SetSystemAllDisclaimerList(const Json::Value& all) {
  std::string error;
  if (!CheckSystemView(all, error)) {
    LOG_ERROR("Failed to set Config, domain_id[%s]", error.c_str());
    return -1;
  }
  for (const Json::Value& element : all) {
    int domain_idx = 0;
    const Json::Value& list = element["disclaimer_list"];
    if (!list.isArray()) {
      continue;
    }
    if (!DomainIdOf(element, domain_idx) || SetDisclaimerList(domain_idx, list) < 0) {
      LOG_ERROR("Failed to set Config, domain_id[%s]", element["domain_id"].asString().c_str());
      return -1;
    }
  }
  return 0;
}
