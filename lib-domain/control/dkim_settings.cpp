// DKIM keys and files by index.
#include "lib-domain/control/dkim_settings.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/outside_settings.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

constexpr const char* kSignPrefix = "enable_dkim_sign-";
constexpr const char* kSelectorPrefix = "dkim_selector-";

int IndexOfKey(const std::string& key) {
  return std::max(IndexBehind(kSignPrefix, key), IndexBehind(kSelectorPrefix, key));
}

bool ListKeys(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::vector<std::string> keys;
  if (!KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::ls("", keys)) {
    return false;
  }
  keys.erase(std::remove_if(keys.begin(), keys.end(),
                            [&](const std::string& key) {
                              const int domain_idx = IndexOfKey(key);
                              return domain_idx <= 0 || !is_asked(domain_idx);
                            }),
             keys.end());
  std::map<std::string, std::string> values;
  if (!keys.empty() && mailConfGetMany(keys, values) < 0) {
    return false;
  }
  for (const auto& [key, value] : values) {
    if (!value.empty() && value != "no") {
      domain_idxs.insert(IndexOfKey(key));
    }
  }
  return true;
}

bool ListFiles(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::vector<std::string> names;
  if (!korvmailserver::ListFolder(DkimFolder(), names)) {
    return false;
  }
  for (const std::string& name : names) {
    const int domain_idx =
        std::max(IndexBehind("dkim.private-", name), IndexBehind("dkim.public-", name));
    if (domain_idx > 0 && is_asked(domain_idx)) {
      domain_idxs.insert(domain_idx);
    }
  }
  return true;
}

// Most domains never had keys.
bool RemoveFile(const std::string& path) {
  if (postara::sdk::Unlink(path) < 0 && errno != ENOENT) {
    LOG_ERROR("Failed to remove %s, %m", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::string DkimFolder() {
  return PATHS::EtcDir() + "dkim.key";
}

bool ListDkimDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  if (!ListKeys(is_asked, domain_idxs) || !ListFiles(is_asked, domain_idxs)) {
    LOG_ERROR("Failed to list the DKIM keys in [%s]", DkimFolder().c_str());
    return false;
  }
  return true;
}

bool ClearDkim(int domain_idx) {
  const std::string index = std::to_string(domain_idx);
  if (mailConfSet(kSignPrefix + index, "no", true, 0) < 0 ||
      mailConfSet(kSelectorPrefix + index, "", true, 0) < 0) {
    LOG_ERROR("Failed to mailConfSet");
    return false;
  }
  const bool is_private_removed = RemoveFile(PATHS::DkimPrivateKey(domain_idx));
  return RemoveFile(PATHS::DkimPublicKey(domain_idx)) && is_private_removed;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
