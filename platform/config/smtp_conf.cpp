// Reads the published domain keys back into maps.
//
// What is not "INDEX/NAME" in the domain list is left out with a warning: the mail services must go
// on with the domains that can be read.
#include "platform/include/smtp_conf.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

#include "platform/config/setting_values.h"
#include "platform/include/mail_conf.h"
#include "platform/include/maillog.h"
#include "platform/include/text.h"

namespace {

constexpr char kDomains[] = "virtual_multiple_domain";
constexpr char kMainDomain[] = "smtp_main_domain";
constexpr char kCanonicalDomain[] = "smtp_canonical_domain";
constexpr char kAdditionalDomain[] = "additional_domain-";

std::list<std::string> Split(const std::string& text) {
  const std::vector<std::string> items = korvmailserver::SplitList(text);
  return {items.begin(), items.end()};
}

// "INDEX/NAME" into its parts.
bool ParseDomain(const std::string& entry, int& id, std::string& name) {
  const size_t slash = entry.find('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == entry.size() ||
      entry.find_first_not_of("0123456789") != slash) {
    return false;
  }
  errno = 0;
  const long number = strtol(entry.c_str(), nullptr, 10);
  if (errno != 0 || number > INT_MAX) {
    return false;
  }
  id = static_cast<int>(number);
  name = entry.substr(slash + 1);
  return true;
}

std::map<int, std::string> ParseDomains(const std::string& text) {
  std::map<int, std::string> domains;
  for (const std::string& entry : Split(text)) {
    int id = 0;
    std::string name;
    if (!ParseDomain(entry, id, name) || !domains.emplace(id, name).second) {
      maillog(korvmailserver::kLogWarning, "%s: [%s] left out", kDomains, entry.c_str());
    }
  }
  return domains;
}

std::string AdditionalKey(int id) {
  return kAdditionalDomain + std::to_string(id);
}

}  // namespace

int SmtpConf::LoadSettings() {
  std::map<std::string, std::string> values;
  if (mailConfGetMany({kDomains, kMainDomain, kCanonicalDomain}, values) < 0) {
    return -1;
  }
  std::map<int, std::string> domains = ParseDomains(values[kDomains]);
  std::vector<std::string> keys;
  keys.reserve(domains.size());
  for (const auto& domain : domains) {
    keys.push_back(AdditionalKey(domain.first));
  }
  if (mailConfGetMany(keys, values) < 0) {
    return -1;
  }
  additional_.clear();
  for (const auto& domain : domains) {
    additional_[domain.first] = Split(values[AdditionalKey(domain.first)]);
  }
  domains_ = std::move(domains);
  canonical_ = Split(values[kCanonicalDomain]);
  main_domain_ = values[kMainDomain];
  return 0;
}

int SmtpConf::GetDomainId(const std::string& name) const {
  for (const auto& [id, domain] : domains_) {
    if (korvmailserver::EqualsIgnoreAsciiCase(domain, name)) {
      return id;
    }
  }
  return -1;
}

int SmtpConf::GetAdditionalDomainList(int domain_id, std::list<std::string>& names) const {
  const auto found = additional_.find(domain_id);
  if (found == additional_.end()) {
    return -1;
  }
  names = found->second;
  return 0;
}
