#include "lib-domain/db/published_model.h"

#include <map>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/schema.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::DB::INTERNAL {

std::string ModelFileName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

bool ReadPublishedModel(PublishedModel& published) {
  std::map<std::string, std::string> values;
  if (mailConfGetMany(
          {kModelKey, "mailserver_domain_db", "virtual_multiple_domain", "smtp_main_domain"},
          values) < 0) {
    return false;
  }
  published.has_domains = !values["virtual_multiple_domain"].empty();
  published.main_domain = values["smtp_main_domain"];
  if (published.main_domain == "localdomain") {
    published.main_domain.clear();
  }
  published.file = values[kModelKey];
  // Publications before version 1.1 did not write the key.
  if (published.file.empty() && published.has_domains) {
    published.file = ModelFileName(values["mailserver_domain_db"]);
  }
  return true;
}

bool IsOfOtherModel(const std::string& published_file, const std::string& path) {
  return !published_file.empty() && published_file != ModelFileName(path);
}

bool AreSettingsForeign(bool& are_foreign) {
  PublishedModel published;
  std::string path;
  if (!UTILS::GetUserGroupDomainConfigPath(path) || !ReadPublishedModel(published)) {
    LOG_ERROR("Failed to compare the model with what is published");
    return false;
  }
  are_foreign = IsOfOtherModel(published.file, path);
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
