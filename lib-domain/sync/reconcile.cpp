// The items of the reconcile step and the loop over them.
#include "lib-domain/sync/reconcile.h"

#include <algorithm>
#include <map>
#include <memory>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/notice.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/notice.h"
#include "lib-domain/db/published_model.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/sync/reconcile_registry.h"
#include "platform/include/domain_setting.h"
#include "platform/include/key_store.h"

namespace MDOMAIN::UTILS {

namespace {

using CONTROL::INTERNAL::OutsideSetting;
using korvmailserver::KeyStoreView;

std::string DomainText(int domain_idx) {
  return "domain " + std::to_string(domain_idx);
}

std::string DatabasePath() {
  std::string path;
  return GetUserGroupDomainConfigPath(path) ? path : "";
}

ReconcileItem PrimaryMark() {
  const auto list = [](const ReconcileModel& model, Differences& differences) {
    if (!model.domain_idxs.empty() && !model.has_primary) {
      differences.emplace_back("no domain is the primary one");
    }
    return true;
  };
  const auto mend = [](const ReconcileModel& model) {
    return DB::Domain().SetPrimaryDomain(model.domain_idxs.front());
  };
  return {"primary domain", DatabasePath(), ReconcileScope::kEachChange, list, mend};
}

// The domains of the model that lack a row of their settings.
bool ListMissingSettings(const ReconcileModel& model, std::vector<int>& missing) {
  std::shared_ptr<const MultipleDomain::DomainsWithSettings> known;
  if (MultipleDomain::DomainSetting(PATHS::SettingsDb()).ListDomains(known) < 0) {
    return false;
  }
  std::set_difference(model.domain_idxs.begin(), model.domain_idxs.end(), known->whole.begin(),
                      known->whole.end(), std::back_inserter(missing));
  return true;
}

ReconcileItem MissingSettings() {
  const auto list = [](const ReconcileModel& model, Differences& differences) {
    std::vector<int> missing;
    const bool is_read = ListMissingSettings(model, missing);
    for (const int domain_idx : missing) {
      differences.push_back(DomainText(domain_idx) + " has no settings");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& model) {
    std::vector<int> missing;
    MultipleDomain::DomainSetting settings(PATHS::SettingsDb());
    return ListMissingSettings(model, missing) &&
           std::all_of(missing.begin(), missing.end(), [&settings](int domain_idx) {
             return settings.CreateSettings(domain_idx) >= 0;
           });
  };
  return {"settings of domains", PATHS::SettingsDb(), ReconcileScope::kEachChange, list, mend};
}

ReconcileItem Departures() {
  const auto list = [](const ReconcileModel& model, Differences& differences) {
    std::vector<CONTROL::INTERNAL::PendingDeparture> pending;
    const bool is_read = CONTROL::INTERNAL::ListPendingDepartures(pending);
    for (const auto& departure : pending) {
      if (model.are_settings_foreign) {
        differences.push_back(DomainText(departure.domain_idx) +
                              " has on record who left, and no settings of its own");
      } else if (!model.domain_idxs.empty() || !departure.deleted_name.empty()) {
        differences.push_back(DomainText(departure.domain_idx) +
                              " keeps settings of accounts or groups that left");
      }
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& /*model*/) {
    return CONTROL::INTERNAL::FinishDepartures();
  };
  return {
      "settings of those who left", DatabasePath(), ReconcileScope::kEachChange, list, mend, true};
}

ReconcileItem Notices() {
  const auto list = [](const ReconcileModel& /*model*/, Differences& differences) {
    std::vector<unsigned int> uids;
    const bool is_read = DB::Notice().List(uids);
    if (!uids.empty()) {
      differences.push_back("the SMTP side does not know yet of changed addresses of " +
                            std::to_string(uids.size()) + " user(s)");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& /*model*/) {
    return CONTROL::INTERNAL::SendNotices();
  };
  return {"notices of changed addresses",
          PATHS::ChangedUserDir(),
          ReconcileScope::kEachChange,
          list,
          mend,
          true};
}

bool ListUnsettled(const ReconcileModel& model, std::set<int>& domain_idxs) {
  return model.are_settings_foreign ||
         CONTROL::INTERNAL::ListUnsettledTexts(
             [&model](int domain_idx) { return model.Has(domain_idx); }, domain_idxs);
}

ReconcileItem UnsettledTexts() {
  const auto list = [](const ReconcileModel& model, Differences& differences) {
    std::set<int> domain_idxs;
    const bool is_read = ListUnsettled(model, domain_idxs);
    for (const int domain_idx : domain_idxs) {
      differences.push_back(DomainText(domain_idx) + " has texts of disclaimers on their way");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& model) {
    std::set<int> domain_idxs;
    bool is_settled = ListUnsettled(model, domain_idxs);
    for (const int domain_idx : domain_idxs) {
      is_settled = CONTROL::INTERNAL::SettleTexts(domain_idx) && is_settled;
    }
    return is_settled;
  };
  return {"texts of disclaimers", PATHS::DisclaimerDir(), ReconcileScope::kEachChange, list, mend};
}

// The indexes that no domain has and under which something stands.
bool ListVanished(const OutsideSetting& setting, const ReconcileModel& model,
                  std::set<int>& domain_idxs) {
  return model.domain_idxs.empty() || model.are_settings_foreign ||
         setting.list([&model](int domain_idx) { return !model.Has(domain_idx); }, domain_idxs);
}

// `setting` lives as long as the process.
ReconcileItem Vanished(const OutsideSetting& setting) {
  const auto list = [&setting](const ReconcileModel& model, Differences& differences) {
    std::set<int> domain_idxs;
    const bool is_read = ListVanished(setting, model, domain_idxs);
    for (const int domain_idx : domain_idxs) {
      differences.push_back(DomainText(domain_idx) + " is gone and left " + setting.name);
    }
    return is_read;
  };
  const auto mend = [&setting](const ReconcileModel& model) {
    std::set<int> domain_idxs;
    const bool is_told = ListVanished(setting, model, domain_idxs);
    return setting.Clear(domain_idxs) && is_told;
  };
  return {setting.name, setting.place(), ReconcileScope::kEachChange, list, mend};
}

// They are made from what is published as well.
ReconcileItem BccMaps() {
  const auto list = [](const ReconcileModel& model, Differences& differences) {
    bool are_old = false;
    const bool is_read = model.are_settings_foreign || CONTROL::INTERNAL::AreBccMapsOld(are_old);
    if (are_old) {
      differences.emplace_back(
          "the maps of blind copies are older than the rules or the addresses");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& /*model*/) {
    return CONTROL::INTERNAL::MakeBccMaps();
  };
  return {"maps of blind copies",
          PATHS::TargetEtcDir(),
          ReconcileScope::kEachChange,
          list,
          mend,
          false,
          true};
}

// Of the items that read the model, those that differ in nothing, and with kFailed those that
// cannot tell.
using Answers = std::map<const ReconcileItem*, ReconcileResult>;

// Reads the model, and asks the items that do so too, in one moment. What differs is asked again in
// its turn.
bool Look(ReconcileModel& model, const std::vector<const ReconcileItem*>& items, Answers& answers) {
  const DB::ReadScope of_one_moment;
  if (!ReadReconcileModel(model)) {
    return false;
  }
  for (const ReconcileItem* item : items) {
    Differences differences;
    if (item->lists_model && !item->list(model, differences)) {
      answers[item] = ReconcileResult::kFailed;
    } else if (item->lists_model && differences.empty()) {
      answers[item] = ReconcileResult::kNothingToDo;
    }
  }
  return true;
}

// Whether the item differed and was mended; throws nothing. `is_touched`: mending it began.
ReconcileResult RunItem(const ReconcileItem& item, const ReconcileModel& model, bool& is_touched) {
  Differences differences;
  if (!item.list(model, differences)) {
    return ReconcileResult::kFailed;
  }
  if (differences.empty()) {
    return ReconcileResult::kNothingToDo;
  }
  for (const std::string& difference : differences) {
    LOG_NOTICE("reconcile: %s, place: [%s]", difference.c_str(), item.place.c_str());
  }
  const KeyStoreView each_read_anew(KeyStoreView::Kind::kCurrent);
  is_touched = true;
  return item.mend(model) ? ReconcileResult::kMended : ReconcileResult::kFailed;
}

}  // namespace

std::vector<ReconcileItem> ReconcileItems() {
  std::vector<ReconcileItem> items = {PrimaryMark(), MissingSettings(), Departures(), Notices(),
                                      UnsettledTexts()};
  for (const OutsideSetting& setting : CONTROL::INTERNAL::OutsideSettings()) {
    items.push_back(Vanished(setting));
  }
  items.push_back(BccMaps());
  items.push_back(INTERNAL::ChangedAddressesItem());
  items.push_back(INTERNAL::OwnerRegistryItem());
  items.push_back(INTERNAL::LoginsItem());
  items.push_back(INTERNAL::PostfixMapsItem());
  return items;
}

bool ReadReconcileModel(ReconcileModel& model) {
  std::shared_ptr<const std::vector<RECORD::Domain>> domains;
  if (!DB::Domain().ShareNamedDomains(domains)) {
    LOG_ERROR("Failed to List domains");
    return false;
  }
  for (const RECORD::Domain& domain : *domains) {
    model.domain_idxs.push_back(domain.GetDomainIdx());
    model.has_primary = model.has_primary || domain.IsPrimary();
  }
  return DB::INTERNAL::AreSettingsForeign(model.are_settings_foreign);
}

ReconcileResult Reconcile(ReconcileScope scope) {
  const KeyStoreView view(KeyStoreView::Kind::kOneMoment);
  const std::vector<ReconcileItem> all_items = ReconcileItems();
  std::vector<const ReconcileItem*> items;
  for (const ReconcileItem& item : all_items) {
    if (item.scope == ReconcileScope::kEachChange || scope == ReconcileScope::kFull) {
      items.push_back(&item);
    }
  }
  ReconcileModel model;
  Answers answers;
  if (!Look(model, items, answers)) {
    return ReconcileResult::kFailed;
  }
  ReconcileResult result = ReconcileResult::kNothingToDo;
  bool is_left = false;
  bool is_touched = false;
  for (const ReconcileItem* item : items) {
    // What was mended since may be what the item reads.
    const auto answer = answers.find(item);
    const bool is_told = answer != answers.end() && !is_touched;
    const ReconcileResult of_item = is_told ? answer->second : RunItem(*item, model, is_touched);
    if (of_item == ReconcileResult::kFailed) {
      LOG_ERROR("Failed to reconcile the %s, place: [%s]", item->name.c_str(), item->place.c_str());
    }
    result = std::max(result, of_item);
    is_left = is_left || (of_item == ReconcileResult::kFailed && item->is_urgent);
  }
  if (result == ReconcileResult::kFailed && !is_left &&
      !KORV::POSTARA_SERVER::KORVMailNodeCluster::isClusterHealth(1)) {
    LOG_WARNING(
        "The key store is not healthy, what could not be reconciled is left to the next run");
    return ReconcileResult::kNothingToDo;
  }
  return result;
}

}  // namespace MDOMAIN::UTILS
