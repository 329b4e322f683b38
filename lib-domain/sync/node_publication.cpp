// Which files are published, and under which keys.
#include "lib-domain/sync/node_publication.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/policy_hooks.h"
#include "platform/include/files.h"
#include "platform/include/node_files.h"

namespace MDOMAIN::UTILS {

namespace {

constexpr const char* kContentFile = "domain-";
constexpr const char* kContentKey = "sync_disclaimer_content_file-";

// Texts that are not in force yet lie in the same folder under longer names.
bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool AddDisclaimerContents(std::vector<std::pair<std::string, std::string>>& files) {
  const std::string prefix = kContentFile;
  std::vector<std::string> names;
  if (!korvmailserver::ListFolder(PATHS::DisclaimerDir(), names)) {
    return false;
  }
  for (const std::string& name : names) {
    const std::string number = name.substr(std::min(prefix.size(), name.size()));
    if (name.rfind(prefix, 0) == 0 && IsNumber(number)) {
      files.emplace_back(kContentKey + number, PATHS::DisclaimerDir() + "/" + name);
    }
  }
  return true;
}

}  // namespace

bool PublishNodeFiles() {
  std::vector<std::pair<std::string, std::string>> files = {
      {CONTROL::INTERNAL::kBccFileKey, PATHS::SettingsDb()},
      {"alias_db", PATHS::AliasDb()},
      {"email_owner_db", PATHS::EmailOwnerDb()}};
  if (!AddDisclaimerContents(files) || !korvmailserver::PublishChangedFiles(files)) {
    LOG_ERROR("Failed to publish the files for other machines");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
