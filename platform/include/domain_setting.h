// Per-domain rows of the settings database: one default row per domain in
// multi_domain_enable_table and multi_domain_rate_table. A file that this process has had open and
// that is gone since is a failure for every call, and none is made in its place.
#ifndef PLATFORM_DOMAIN_SETTING_H
#define PLATFORM_DOMAIN_SETTING_H

#include <memory>
#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MultipleDomain {

// The whole schema of the settings database; whoever opens the file first creates all of it.
MDOMAIN_EXPORT const std::string& SettingsSchema();

// The domains that have rows, ascending.
struct DomainsWithSettings {
  std::vector<int> all;    // in one of the two tables at least
  std::vector<int> whole;  // in both
};

class MDOMAIN_EXPORT DomainSetting {
 public:
  explicit DomainSetting(const std::string& path);
  // Default rows for a domain; existing ones are kept. Makes the database with its whole schema if
  // it is missing, and the two tables if an older one lacks them. 0, or negative with one log line.
  int CreateSettings(int domain_id);
  // Removes the rows. 0 (also when there are none, or no database), or negative with one log line.
  int DelSettings(int domain_id);
  // 0 (also when there are none, or no database), or negative with one log line and `domains`
  // untouched.
  int ListDomains(std::shared_ptr<const DomainsWithSettings>& domains);

 private:
  std::string path_;
};

}  // namespace MultipleDomain

#endif  // PLATFORM_DOMAIN_SETTING_H
