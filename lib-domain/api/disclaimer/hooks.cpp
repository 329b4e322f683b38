// The clean-up of disclaimers when a domain, users or groups go.
#include <json/value.h>
#include <sys/stat.h>

#include <cerrno>
#include <map>

#include "lib-domain/api/disclaimer/stored_list.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/control/policy_hooks.h"
#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::CONTROL::INTERNAL {

namespace {

constexpr off_t kNoTextsSize = 3;  // "[]" and a line end

// An empty list is what a deleted domain leaves, and so is a file without texts.
bool AddDomainsWithLists(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::vector<std::string> all;
  if (!KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::ls("", all)) {
    return false;
  }
  std::map<std::string, int> asked;
  std::vector<std::string> keys;
  for (const std::string& key : all) {
    const int domain_idx = IndexBehind(API::INTERNAL::kDisclaimerListPrefix, key);
    if (domain_idx > 0 && is_asked(domain_idx)) {
      asked.emplace(key, domain_idx);
      keys.push_back(key);
    }
  }
  std::map<std::string, std::string> texts;
  if (!keys.empty() && mailConfGetMany(keys, texts) < 0) {
    return false;
  }
  for (const auto& [key, domain_idx] : asked) {
    Json::Value list;
    if (!API::INTERNAL::ParseStoredList(texts[key], list) || !list.empty()) {
      domain_idxs.insert(domain_idx);
    }
  }
  return true;
}

bool AddDomainsWithTexts(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::vector<std::string> names;
  if (postara::sdk::EnumDirectory(PATHS::DisclaimerDir(), names) < 0) {
    return errno == ENOENT;
  }
  for (const std::string& name : names) {
    const int domain_idx = IndexBehind("domain-", name);
    struct stat info {};
    if (domain_idx > 0 && is_asked(domain_idx) &&
        stat((PATHS::DisclaimerDir() + "/" + name).c_str(), &info) == 0 &&
        info.st_size > kNoTextsSize) {
      domain_idxs.insert(domain_idx);
    }
  }
  return true;
}

}  // namespace

DisclaimerOutcome DeleteDomainDisclaimers(int domain_idx) {
  MimeDefang mimedefang;
  if (mimedefang.LoadSettings() < 0) {
    return DisclaimerOutcome::kLoadFailed;
  }
  // It logs a failure itself. The domain is gone by now; whether the filter has to run must be
  // settled all the same.
  const bool is_emptied =
      mimedefang.SetDisclaimerList(domain_idx, Json::Value(Json::arrayValue)) >= 0;
  if (mimedefang.SaveSettings() < 0) {
    return DisclaimerOutcome::kSaveFailed;
  }
  return is_emptied ? DisclaimerOutcome::kDone : DisclaimerOutcome::kListFailed;
}

bool ListDisclaimerDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  if (!AddDomainsWithLists(is_asked, domain_idxs) || !AddDomainsWithTexts(is_asked, domain_idxs)) {
    LOG_ERROR("Failed to list the disclaimers in [%s]", PATHS::DisclaimerDir().c_str());
    return false;
  }
  return true;
}

bool RemoveUsersFromDisclaimers(int domain_idx, const std::vector<unsigned int>& uids) {
  MimeDefang mimedefang;
  return mimedefang.LoadSettings() >= 0 && mimedefang.RemoveRulesByUsers(domain_idx, uids) &&
         mimedefang.SaveSettings() >= 0;
}

bool RemoveGroupsFromDisclaimers(int domain_idx, const std::vector<unsigned int>& gids) {
  MimeDefang mimedefang;
  return mimedefang.LoadSettings() >= 0 && mimedefang.RemoveRulesByGroups(domain_idx, gids) &&
         mimedefang.SaveSettings() >= 0;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
