// Plans of changes as records of a session.
#ifndef LIB_DOMAIN_SESSION_TRIAL_H
#define LIB_DOMAIN_SESSION_TRIAL_H

#include "lib-domain/history/plan.h"
#include "lib-domain/session/mdomain.hpp"

namespace mdomain::session {

ChangePlan PlanOf(const MDOMAIN::HISTORY::Plan& plan);

// Within a dry run: its plan also has what every publication writes anew.
void TellPublished();

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_TRIAL_H
