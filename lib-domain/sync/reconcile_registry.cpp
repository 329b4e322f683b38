#include "lib-domain/sync/reconcile_registry.h"

#include "lib-domain/base/paths.h"
#include "lib-domain/sync/follow_addresses.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

// An item about which one question is asked: `tell` says whether it is `difference`.
ReconcileItem Item(const char* name, const std::string& place, ReconcileScope scope,
                   bool (*tell)(bool&), const char* difference, bool (*mend)()) {
  const auto list = [tell, difference](const ReconcileModel& /*model*/, Differences& differences) {
    bool is_different = false;
    const bool is_told = tell(is_different);
    if (is_different) {
      differences.emplace_back(difference);
    }
    return is_told;
  };
  const bool lists_model = scope == ReconcileScope::kEachChange;
  return {
      name,       place, scope, list, [mend](const ReconcileModel& /*model*/) { return mend(); },
      lists_model};
}

bool BuildRegistry() {
  OwnerCounts counts;
  return BuildOwners(counts);
}

}  // namespace

ReconcileItem ChangedAddressesItem() {
  return Item("changed addresses", PATHS::EmailOwnerDb(), ReconcileScope::kEachChange,
              &HasChangesToFollow, "addresses changed that what is made from them has not followed",
              &FollowAddresses);
}

ReconcileItem OwnerRegistryItem() {
  return Item("registry of address owners", PATHS::EmailOwnerDb(), ReconcileScope::kFull,
              &AreOwnersBehind, "the registry of address owners is older than the domain database",
              &BuildRegistry);
}

ReconcileItem LoginsItem() {
  return Item("registry for logins", PATHS::LoginDb(), ReconcileScope::kFull, &AreLoginsBehind,
              "the registry for logins is older than the domain database", &BuildLogins);
}

ReconcileItem PostfixMapsItem() {
  return Item("maps for Postfix", PATHS::PostfixAddresses(), ReconcileScope::kFull,
              &ArePostfixMapsBehind, "the maps for Postfix are not those of the domain database",
              &BuildPostfixMaps);
}

}  // namespace MDOMAIN::UTILS::INTERNAL
