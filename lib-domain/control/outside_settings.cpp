// The kinds of settings under an index. Those of the policies come through their hooks.
#include "lib-domain/control/outside_settings.h"

#include <map>
#include <memory>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/dkim_settings.h"
#include "lib-domain/db/departure.h"
#include "lib-domain/db/published_model.h"
#include "platform/include/alias.h"
#include "platform/include/domain_setting.h"
#include "platform/include/key_store.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::CONTROL::INTERNAL {

using korvmailserver::KeyStoreView;

namespace {

template <typename Indexes>
void AddAsked(const IndexFilter& is_asked, const Indexes& all, std::set<int>& domain_idxs) {
  for (const int domain_idx : all) {
    if (domain_idx > 0 && is_asked(domain_idx)) {
      domain_idxs.insert(domain_idx);
    }
  }
}

bool ListAliasDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::set<int> all;
  if (Alias(PATHS::AliasDb()).listDomains(all) < 0) {
    return false;
  }
  AddAsked(is_asked, all, domain_idxs);
  return true;
}

bool ClearAliases(int domain_idx) {
  Alias alias(PATHS::AliasDb());
  return alias.load() >= 0 && alias.delDomainAlias(domain_idx) >= 0;
}

bool ListLimitDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs) {
  std::shared_ptr<const MultipleDomain::DomainsWithSettings> known;
  if (MultipleDomain::DomainSetting(PATHS::SettingsDb()).ListDomains(known) < 0) {
    return false;
  }
  AddAsked(is_asked, known->all, domain_idxs);
  return true;
}

bool ClearLimits(int domain_idx) {
  return MultipleDomain::DomainSetting(PATHS::SettingsDb()).DelSettings(domain_idx) >= 0;
}

bool ClearBcc(int domain_idx) {
  return DeleteDomainBcc(domain_idx) == BccOutcome::kDone;
}

bool ClearDisclaimers(int domain_idx) {
  return DeleteDomainDisclaimers(domain_idx) == DisclaimerOutcome::kDone;
}

// A domain that was deleted on purpose is not taken up again.
bool IsMainDomainOfBefore(int domain_idx, const std::string& domain_name) {
  std::string name;
  std::map<int, DB::DomainDepartures> departures;
  return mailConfGet("smtp_main_domain", name) == 0 && BASE::EqualsIgnoreCase(name, domain_name) &&
         DB::Departure().List(departures) && departures.count(domain_idx) == 0;
}

// Without the settings database the domain gets no settings either: its creation fails, and leaves
// the row, for which the reconcile step makes them later. Not where something is known to be left.
bool FailsBehindTheRow(int domain_idx) {
  std::shared_ptr<const MultipleDomain::DomainsWithSettings> known;
  std::map<int, DB::DomainDepartures> departures;
  return MultipleDomain::DomainSetting(PATHS::SettingsDb()).ListDomains(known) < 0 &&
         DB::Departure().List(departures) && departures.count(domain_idx) == 0;
}

}  // namespace

const std::vector<OutsideSetting>& OutsideSettings() {
  static const auto& settings = *new std::vector<OutsideSetting>{
      {"aliases", &PATHS::AliasDb, &ListAliasDomains, &ClearAliases, true},
      {"limits", &PATHS::SettingsDb, &ListLimitDomains, &ClearLimits, false},
      {"BCC rules", &PATHS::SettingsDb, &ListBccDomains, &ClearBcc, true},
      {"disclaimers", &PATHS::DisclaimerDir, &ListDisclaimerDomains, &ClearDisclaimers, true},
      {"DKIM keys", &DkimFolder, &ListDkimDomains, &ClearDkim, true},
  };
  return settings;
}

int IndexBehind(const std::string& prefix, const std::string& text) {
  int domain_idx = -1;
  if (text.rfind(prefix, 0) != 0) {
    return -1;
  }
  const std::string number =
      text.substr(prefix.size(), text.find('.', prefix.size()) - prefix.size());
  const bool is_number =
      !number.empty() && number.find_first_not_of("0123456789") == std::string::npos;
  return is_number && BASE::ConvertToInt(number, domain_idx) ? domain_idx : -1;
}

bool OutsideSetting::Clear(const std::set<int>& domain_idxs) const {
  bool is_clear = true;
  const KeyStoreView each_read_anew(KeyStoreView::Kind::kCurrent);
  for (const int domain_idx : domain_idxs) {
    if (!clear(domain_idx)) {
      LOG_ERROR("Failed to clear the %s, domain_id: [%d], place: [%s]", name, domain_idx,
                place().c_str());
      is_clear = false;
    }
  }
  return is_clear;
}

bool ClearIndex(int domain_idx) {
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  bool is_clear = true;
  for (const OutsideSetting& setting : OutsideSettings()) {
    std::set<int> found;
    const bool is_told =
        setting.list([domain_idx](int other) { return other == domain_idx; }, found);
    if (!is_told) {
      LOG_ERROR("Failed to list the %s, domain_id: [%d], place: [%s]", setting.name, domain_idx,
                setting.place().c_str());
    }
    is_clear = (found.empty() || setting.Clear(found)) && is_told && is_clear;
  }
  return is_clear && DB::Departure().DeleteDomains({domain_idx});
}

bool ClearNewIndex(int domain_idx, const std::string& domain_name, bool is_first) {
  return (is_first && IsMainDomainOfBefore(domain_idx, domain_name)) || ClearIndex(domain_idx) ||
         FailsBehindTheRow(domain_idx);
}

bool ListUnderIndex(int domain_idx, std::vector<std::string>& kinds) {
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  bool are_foreign = false;
  if (!DB::INTERNAL::AreSettingsForeign(are_foreign)) {
    return false;
  }
  if (are_foreign) {
    return true;
  }
  for (const OutsideSetting& setting : OutsideSettings()) {
    std::set<int> found;
    if (!setting.list([domain_idx](int other) { return other == domain_idx; }, found)) {
      return false;
    }
    if (!found.empty()) {
      kinds.push_back(std::string(setting.name) + " (" + setting.place() + ")");
    }
  }
  return true;
}

}  // namespace MDOMAIN::CONTROL::INTERNAL
