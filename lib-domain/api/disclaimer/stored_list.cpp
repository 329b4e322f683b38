#include "lib-domain/api/disclaimer/stored_list.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <memory>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/record/domain.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

constexpr const char* kEmptyList = "[]\n";  // what a deleted domain leaves

bool LogUnlisted() {
  LOG_ERROR("get domain list failed");
  return false;
}

bool LogUnread(const std::vector<RECORD::Domain>& domains) {
  LOG_ERROR("Failed to get disclamer, domain_id[%d]",
            domains.empty() ? 0 : domains.front().GetDomainIdx());
  return false;
}

}  // namespace

std::string DisclaimerListKey(int domain_idx) {
  return kDisclaimerListPrefix + std::to_string(domain_idx);
}

bool ParseJson(const std::string& text, Json::Value& value) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  // Strict mode also demands an array or object at the top and refuses deep nesting by throwing.
  builder["stackLimit"] = 64;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value parsed;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, nullptr)) {
      return false;
    }
  } catch (const Json::Exception&) {
    return false;
  }
  value = parsed;
  return true;
}

std::string WriteJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value) + "\n";
}

bool IsArrayOfObjects(const Json::Value& value) {
  return value.isArray() && std::all_of(value.begin(), value.end(), [](const Json::Value& element) {
           return element.isObject();
         });
}

bool ListAllDomains(std::vector<RECORD::Domain>& domains) {
  if (!DB::Domain().ListNames(domains)) {
    return LogUnlisted();
  }
  return true;
}

bool ListDomainsWithLists(std::vector<RECORD::Domain>& domains) {
  using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;
  std::shared_ptr<const std::vector<RECORD::Domain>> all;
  if (!DB::Domain().ShareNamedDomains(all)) {
    return LogUnlisted();
  }
  std::vector<std::string> keys;
  const auto is_list = [](const std::string& key) {
    return key.rfind(kDisclaimerListPrefix, 0) == 0;
  };
  if (!PostaraServerBACKENDWrap::ls("", is_list, keys)) {
    return LogUnread(*all);
  }
  for (const std::string& key : keys) {
    const int domain_idx = CONTROL::INTERNAL::IndexBehind(kDisclaimerListPrefix, key);
    const auto domain = std::lower_bound(
        all->begin(), all->end(), domain_idx,
        [](const RECORD::Domain& one, int wanted) { return one.GetDomainIdx() < wanted; });
    if (domain != all->end() && DisclaimerListKey(domain->GetDomainIdx()) == key) {
      domains.push_back(*domain);
    }
  }
  return true;
}

bool ParseStoredList(const std::string& text, Json::Value& list) {
  list = Json::Value(Json::arrayValue);
  return text.empty() || text == kEmptyList || (ParseJson(text, list) && IsArrayOfObjects(list));
}

bool ParseStoredList(int domain_idx, const std::string& text, Json::Value& list) {
  if (!ParseStoredList(text, list)) {
    LOG_WARNING("The stored value of [%s] is no list of disclaimers",
                DisclaimerListKey(domain_idx).c_str());
    LOG_ERROR("Failed to get disclamer, domain_id[%d]", domain_idx);
    return false;
  }
  return true;
}

bool ReadStoredTexts(const std::vector<RECORD::Domain>& domains,
                     std::map<int, std::string>& texts) {
  std::vector<std::string> keys;
  keys.reserve(domains.size());
  for (const RECORD::Domain& domain : domains) {
    keys.push_back(DisclaimerListKey(domain.GetDomainIdx()));
  }
  std::map<std::string, std::string> values;
  if (mailConfGetMany(keys, values) < 0) {
    return LogUnread(domains);
  }
  for (const RECORD::Domain& domain : domains) {
    texts[domain.GetDomainIdx()] = values[DisclaimerListKey(domain.GetDomainIdx())];
  }
  return true;
}

bool ReadAllStoredTexts(std::vector<RECORD::Domain>& domains, std::map<int, std::string>& texts) {
  return ListAllDomains(domains) && ReadStoredTexts(domains, texts);
}

bool PatternAsId(const Json::Value& pattern, unsigned int& id) {
  if (pattern.isUInt()) {
    id = pattern.asUInt();
    return true;
  }
  return pattern.isString() && BASE::ConvertToUID(pattern.asString(), id);
}

}  // namespace MDOMAIN::API::INTERNAL
