// Which files are published, and under which keys.
#include "lib-domain/sync/node_publication.h"

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/control/policy_hooks.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::UTILS {

namespace {

using CONTROL::INTERNAL::IndexBehind;
using KORV::POSTARA_SERVER::PostaraServerBACKENDWrap;

using Files = std::vector<std::pair<std::string, std::string>>;  // keys and paths

constexpr const char* kContentFile = "domain-";
constexpr const char* kContentKey = "sync_disclaimer_content_file-";

// Texts that are not in force yet lie in the same folder under longer names. False with a
// log line when the folder cannot be read.
bool AddDisclaimerContents(Files& files, std::set<int>& domain_idxs) {
  std::vector<std::string> names;
  if (!korvmailserver::ListFolder(PATHS::DisclaimerDir(), names)) {
    return false;
  }
  for (const std::string& name : names) {
    const int domain_idx = IndexBehind(kContentFile, name);
    if (domain_idx >= 0 && name == kContentFile + std::to_string(domain_idx)) {
      files.emplace_back(kContentKey + std::to_string(domain_idx),
                         PATHS::DisclaimerDir() + "/" + name);
      domain_idxs.insert(domain_idx);
    }
  }
  return true;
}

// The keys of texts that are gone together with their list.
bool RemoveContentKeys(const std::set<int>& with_texts) {
  std::vector<std::string> keys;
  if (!PostaraServerBACKENDWrap::ls("", keys)) {
    return false;
  }
  std::map<int, std::string> without_texts;
  for (const std::string& key : keys) {
    const int domain_idx = IndexBehind(kContentKey, key);
    if (domain_idx >= 0 && with_texts.count(domain_idx) == 0) {
      without_texts.emplace(domain_idx, key);
    }
  }
  std::set<int> with_lists;
  if (without_texts.empty() ||
      !CONTROL::INTERNAL::ListDisclaimerDomains(
          [&](int domain_idx) { return without_texts.count(domain_idx) != 0; }, with_lists)) {
    return without_texts.empty();
  }
  std::vector<std::string> stale;
  for (const auto& [domain_idx, key] : without_texts) {
    if (with_lists.count(domain_idx) == 0) {
      stale.push_back(key);
    }
  }
  return stale.empty() || PostaraServerBACKENDWrap::removeKeys(stale);
}

}  // namespace

bool PublishNodeFiles() {
  const korvmailserver::PublicationScope publication;
  Files files = {{CONTROL::INTERNAL::kBccFileKey, PATHS::SettingsDb()},
                 {"alias_db", PATHS::AliasDb()},
                 {"email_owner_db", PATHS::EmailOwnerDb()}};
  std::set<int> with_texts;
  if (!AddDisclaimerContents(files, with_texts) || !korvmailserver::PublishChangedFiles(files) ||
      !RemoveContentKeys(with_texts)) {
    LOG_ERROR("Failed to publish the files for other machines");
    return false;
  }
  return true;
}

}  // namespace MDOMAIN::UTILS
