// The registry of address owners as items of the reconcile step.
#ifndef LIB_DOMAIN_SYNC_RECONCILE_REGISTRY_H
#define LIB_DOMAIN_SYNC_RECONCILE_REGISTRY_H

#include "lib-domain/sync/reconcile.h"

namespace MDOMAIN::UTILS::INTERNAL {

// Follows changes that are on record (sync/follow_addresses.h) and were not followed at once.
ReconcileItem ChangedAddressesItem();

// Builds the registry anew when it was built from the domain database before and that changed
// since. A registry that another program fills is left alone.
ReconcileItem OwnerRegistryItem();
// The one that Dovecot reads, where this machine pulled before it managed.
ReconcileItem LoginsItem();
// The maps where they were made once.
ReconcileItem PostfixMapsItem();

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_RECONCILE_REGISTRY_H
