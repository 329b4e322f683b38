#include "lib-domain/sync/reconcile_registry.h"

#include "lib-domain/base/paths.h"
#include "lib-domain/sync/follow_addresses.h"

namespace MDOMAIN::UTILS::INTERNAL {

ReconcileItem ChangedAddressesItem() {
  const auto list = [](const ReconcileModel& /*model*/, Differences& differences) {
    bool has_changes = false;
    const bool is_read = HasChangesToFollow(has_changes);
    if (has_changes) {
      differences.emplace_back("addresses changed that what is made from them has not followed");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& /*model*/) { return FollowAddresses(); };
  return {"changed addresses", PATHS::EmailOwnerDb(), ReconcileScope::kEachChange, list, mend};
}

ReconcileItem OwnerRegistryItem() {
  const auto list = [](const ReconcileModel& /*model*/, Differences& differences) {
    bool are_behind = false;
    const bool is_read = AreOwnersBehind(are_behind);
    if (are_behind) {
      differences.emplace_back("the registry of address owners is older than the domain database");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& /*model*/) {
    OwnerCounts counts;
    return BuildOwners(counts);
  };
  return {"registry of address owners", PATHS::EmailOwnerDb(), ReconcileScope::kFull, list, mend};
}

ReconcileItem PostfixMapsItem() {
  const auto list = [](const ReconcileModel& /*model*/, Differences& differences) {
    bool are_behind = false;
    const bool is_read = ArePostfixMapsBehind(are_behind);
    if (are_behind) {
      differences.emplace_back("the maps for Postfix are not those of the domain database");
    }
    return is_read;
  };
  const auto mend = [](const ReconcileModel& /*model*/) { return BuildPostfixMaps(); };
  return {"maps for Postfix", PATHS::PostfixAddresses(), ReconcileScope::kFull, list, mend};
}

}  // namespace MDOMAIN::UTILS::INTERNAL
