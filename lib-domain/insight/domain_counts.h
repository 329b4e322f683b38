// How much there is in a domain.
#ifndef LIB_DOMAIN_INSIGHT_DOMAIN_COUNTS_H
#define LIB_DOMAIN_INSIGHT_DOMAIN_COUNTS_H

#include "lib-domain/insight/answers.h"
#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

MDOMAIN_EXPORT mdomain::DomainCounts CountIn(int domain_idx);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_DOMAIN_COUNTS_H
