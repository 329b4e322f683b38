// How every changing call of this layer ends: what changed is published, and whatever does not
// follow from the model is brought in line with it.
#ifndef LIB_DOMAIN_API_TRIGGER_H
#define LIB_DOMAIN_API_TRIGGER_H

#include "lib-domain/sync/reconcile.h"
#include "lib-domain/utils/updater.h"

namespace MDOMAIN::API::INTERNAL {

// Publishes all domain data (UTILS::Updater::Trigger), then reconciles (UTILS::Reconcile) and
// publishes again when that changed something. Other machines get both at once. A failure is logged
// and is the failure of the call that made the change, although the change stays; that the shared
// store is away is none (korvmailserver::WhyUnpublished). Reconciling is tried also when publishing
// failed.
//
// While a BatchScope lives nothing is stored that could be published: true, and both happen once,
// behind its commit.
bool TriggerUpdater(UTILS::ReconcileScope scope = UTILS::ReconcileScope::kEachChange);
// The same with what the caller allows `updater` to publish.
bool TriggerUpdater(UTILS::Updater& updater, UTILS::ReconcileScope scope);

// After a change that failed half-way: brings in line what it left, and logs what it cannot. Behind
// the commit where a BatchScope lives.
void FinishLeftovers();

// The error number of a facade: that a change is not published is said of the last call alone.
void BeginChange(unsigned int& error_code);
// TriggerUpdater; where it fails, the number says that the change is stored.
bool PublishChange(unsigned int& error_code);
// Of the facades whose objects have no room for one, by the name of their class.
unsigned int& ErrorCodeOf(const char* facade);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_TRIGGER_H
