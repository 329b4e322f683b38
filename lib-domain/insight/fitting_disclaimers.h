// Which disclaimers name somebody.
#ifndef LIB_DOMAIN_INSIGHT_FITTING_DISCLAIMERS_H
#define LIB_DOMAIN_INSIGHT_FITTING_DISCLAIMERS_H

#include <optional>
#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"

namespace MDOMAIN::INSIGHT {

// The enabled disclaimers of the domain of which a match rule names the user or one of his groups,
// or has a pattern that fits one of the addresses. False, with nothing added, where their list
// cannot be read.
bool AddFittingDisclaimers(int domain_idx, std::optional<unsigned int> uid,
                           const std::vector<std::string>& addresses,
                           std::vector<mdomain::FittingDisclaimer>& disclaimers);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_FITTING_DISCLAIMERS_H
