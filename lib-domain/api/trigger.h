// How every changing call of this layer ends: what changed is published.
#ifndef LIB_DOMAIN_API_TRIGGER_H
#define LIB_DOMAIN_API_TRIGGER_H

namespace MDOMAIN::API::INTERNAL {

// Publishes all domain data (UTILS::Updater::Trigger). A failure is logged and is the failure of
// the call that made the change, although the change stays.
bool TriggerUpdater();

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_TRIGGER_H
