// The clean-up of disclaimers when a domain, users or groups go.
#include <json/value.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "lib-domain/api/disclaimer/content.h"
#include "lib-domain/api/disclaimer/pending_content.h"
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

using korvmailserver::KeyStoreView;

constexpr off_t kNoTextsSize = 3;  // "[]" and a line end

// An empty list is what a deleted domain leaves, and so is a file without texts.
bool AddDomainsWithLists(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::map<std::string, int> asked;
  const auto is_key_asked = [&](const std::string& key) {
    const int domain_idx = IndexBehind(API::INTERNAL::kDisclaimerListPrefix, key);
    return domain_idx > 0 && is_asked(domain_idx) && asked.emplace(key, domain_idx).second;
  };
  std::vector<std::string> keys;
  if (!KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::ls("", is_key_asked, keys)) {
    return false;
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
  if (!korvmailserver::ListFolder(PATHS::DisclaimerDir(), names)) {
    return false;
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

bool LogUnlisted() {
  LOG_ERROR("Failed to list the disclaimers in [%s]", PATHS::DisclaimerDir().c_str());
  return false;
}

}  // namespace

DisclaimerOutcome DeleteDomainDisclaimers(int domain_idx) {
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
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
  return (AddDomainsWithLists(is_asked, domain_idxs) &&
          AddDomainsWithTexts(is_asked, domain_idxs)) ||
         LogUnlisted();
}

bool ListUnsettledTexts(const IndexFilter& is_in_model, std::set<int>& unsettled) {
  std::vector<std::string> names;
  std::vector<std::string> keys;
  if (!korvmailserver::ListFolder(PATHS::DisclaimerDir(), names)) {
    return LogUnlisted();
  }
  if (!names.empty() && !KORV::POSTARA_SERVER::PostaraServerBACKENDWrap::ls("", keys)) {
    return LogUnlisted();
  }
  for (const std::string& name : names) {
    const int domain_idx = IndexBehind("domain-", name);
    const bool is_in_place = name.find('.') == std::string::npos;
    const auto is_published = [&] {
      return std::binary_search(keys.begin(), keys.end(), API::INTERNAL::ContentKey(domain_idx));
    };
    if (is_in_place ? is_in_model(domain_idx) && !is_published() : domain_idx > 0) {
      unsettled.insert(domain_idx);
    }
  }
  return true;
}

bool SettleTexts(int domain_idx) {
  using namespace API::INTERNAL;  // NOLINT(google-build-using-namespace)
  if (SettlePendingContents(domain_idx, Others::kPass) < 0) {
    LOG_ERROR("Failed to settle the texts of disclaimers in [%s], domain_id: [%d]",
              PATHS::DisclaimerDir().c_str(), domain_idx);
    return false;
  }
  return !postara::sdk::Exist(PATHS::DisclaimerContent(domain_idx)) ||
         PublishContents(domain_idx) >= 0;
}

bool RemoveUsersFromDisclaimers(int domain_idx, const std::vector<unsigned int>& uids) {
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  MimeDefang mimedefang;
  return mimedefang.LoadSettings() >= 0 && mimedefang.RemoveRulesByUsers(domain_idx, uids) &&
         mimedefang.SaveSettings() >= 0;
}

bool RemoveGroupsFromDisclaimers(int domain_idx, const std::vector<unsigned int>& gids) {
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  MimeDefang mimedefang;
  return mimedefang.LoadSettings() >= 0 && mimedefang.RemoveRulesByGroups(domain_idx, gids) &&
         mimedefang.SaveSettings() >= 0;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
