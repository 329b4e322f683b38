// The registry of address owners as an item of the reconcile step.
#ifndef LIB_DOMAIN_SYNC_RECONCILE_REGISTRY_H
#define LIB_DOMAIN_SYNC_RECONCILE_REGISTRY_H

#include "lib-domain/sync/reconcile.h"

namespace MDOMAIN::UTILS::INTERNAL {

// Builds the registry anew when it was built from the domain database before and that changed
// since. A registry that another program fills is left alone.
ReconcileItem OwnerRegistryItem();

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_RECONCILE_REGISTRY_H
