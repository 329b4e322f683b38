// Whether the registry follows the domain database: the registry remembers which state of the
// database it was built from.
#include "lib-domain/sync/reconcile_registry.h"

#include "lib-domain/base/paths.h"
#include "lib-domain/db/change_counter.h"
#include "lib-domain/db/reader.h"
#include "lib-domain/sync/owner_registry.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

bool List(const ReconcileModel& /*model*/, Differences& differences) {
  DB::INTERNAL::Reader reader(PATHS::EmailOwnerDb());
  int built_from = 0;
  int counter = 0;
  const auto keep = [&built_from](const korvmailserver::Statement& row) {
    built_from = row.Int(0);
  };
  if (!reader.Open() || !reader.ForEachRow("PRAGMA user_version", keep)) {
    return false;
  }
  if (built_from == 0) {
    return true;
  }
  if (!DB::GetChangeCounter(counter)) {
    return false;
  }
  if (built_from != counter) {
    differences.emplace_back("the registry of address owners is older than the domain database");
  }
  return true;
}

bool Mend(const ReconcileModel& /*model*/) {
  OwnerRegistryContent content;
  return CollectOwners(content) && ReplaceOwnerRegistry(PATHS::EmailOwnerDb(), content);
}

}  // namespace

ReconcileItem OwnerRegistryItem() {
  return {"registry of address owners", PATHS::EmailOwnerDb(), ReconcileScope::kFull, &List, &Mend};
}

}  // namespace MDOMAIN::UTILS::INTERNAL
