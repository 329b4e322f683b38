// Whom a disclaimer concerns.
#ifndef LIB_DOMAIN_INSIGHT_DISCLAIMER_REACH_H
#define LIB_DOMAIN_INSIGHT_DISCLAIMER_REACH_H

#include <json/value.h>

#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/insight/known_domain.h"

namespace MDOMAIN::INSIGHT {

// The disclaimer is one that MimeDefang::CheckDisclaimerList lets through.
mdomain::DisclaimerReach ReachOf(const KnownDomain& domain, const Json::Value& disclaimer);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_DISCLAIMER_REACH_H
