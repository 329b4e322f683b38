// What hangs on a domain outside the domain database: created with it, removed after it.

#include <algorithm>
#include <string>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/dkim_settings.h"
#include "lib-domain/control/domain.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/published_model.h"
#include "platform/include/alias.h"
#include "platform/include/domain_setting.h"

namespace MDOMAIN::CONTROL {

namespace {

// Other machines read the blind-copy rules from the published file. It is published once for all
// domains, and also when a later step failed: the rules of the domains before it are gone.
bool PublishBccRules() {
  const std::string path = PATHS::SettingsDb();
  if (!INTERNAL::PublishBccFile(path)) {
    LOG_ERROR("Fail to set file %s", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

bool Domain::_InitDomainRelatedSettings(const int& domain_idx) {
  MultipleDomain::DomainSetting setting(PATHS::SettingsDb());
  return setting.CreateSettings(domain_idx) >= 0;
}

bool Domain::_UpdatePrimaryDomainRelatedSettings(const int& /*domain_idx*/) {
  return true;
}

bool Domain::_DeleteRelatedSettings(const std::vector<int>& domain_idxs) {
  bool are_foreign = false;
  if (!DB::INTERNAL::AreSettingsForeign(are_foreign)) {
    return false;
  }
  if (are_foreign) {
    return INTERNAL::ForgetClearedDomains(domain_idxs);
  }
  const bool deleted =
      std::all_of(domain_idxs.begin(), domain_idxs.end(), [this](const int& domain_idx) {
        return _DeleteAliasRelatedSettings(domain_idx) &&
               _DeleteUsageLimitRelatedSettings(domain_idx) &&
               _DeleteBCCRelatedSettings(domain_idx) && _DeleteDisclaimerSettings(domain_idx) &&
               _DeleteDKIMSettings(domain_idx);
      });
  const bool published = domain_idxs.empty() || PublishBccRules();
  return deleted && published && INTERNAL::ForgetClearedDomains(domain_idxs);
}

bool Domain::_DeleteAliasRelatedSettings(const int& domain_idx) {
  Alias alias(PATHS::AliasDb());
  if (alias.load() < 0) {
    LOG_ERROR("Failed to load alias");
    return false;
  }
  if (alias.delDomainAlias(domain_idx) < 0) {
    LOG_ERROR("Failed to delDomainAlias, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool Domain::_DeleteUsageLimitRelatedSettings(const int& domain_idx) {
  MultipleDomain::DomainSetting setting(PATHS::SettingsDb());
  if (setting.DelSettings(domain_idx) < 0) {
    LOG_ERROR("Failed to DelSettings, domain_id: [%d]", domain_idx);
    return false;
  }
  return true;
}

bool Domain::_DeleteBCCRelatedSettings(const int& domain_idx) {
  switch (INTERNAL::DeleteDomainBcc(domain_idx)) {
    case INTERNAL::BccOutcome::kNoInstance:
      LOG_ERROR("Failed to get bcc instance, domain_id: [%d]", domain_idx);
      return false;
    case INTERNAL::BccOutcome::kFailed:
      LOG_ERROR("Failed to deleteAllBCC, domain_id: [%d]", domain_idx);
      return false;
    case INTERNAL::BccOutcome::kDone:
      break;
  }
  return true;
}

bool Domain::_DeleteDisclaimerSettings(const int& domain_idx) {
  switch (INTERNAL::DeleteDomainDisclaimers(domain_idx)) {
    case INTERNAL::DisclaimerOutcome::kLoadFailed:
      LOG_ERROR("Failed to load mimedefang settings");
      return false;
    case INTERNAL::DisclaimerOutcome::kSaveFailed:
      LOG_ERROR("Failed to save mimedefang settings");
      return false;
    case INTERNAL::DisclaimerOutcome::kListFailed:  // is found at the end
    case INTERNAL::DisclaimerOutcome::kDone:
      break;
  }
  return true;
}

bool Domain::_DeleteDKIMSettings(const int& domain_idx) {
  return INTERNAL::ClearDkim(domain_idx);
}

}  // namespace MDOMAIN::CONTROL
