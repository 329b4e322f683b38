// Who gets the mail for an address, and why; or why nobody does.
#ifndef LIB_DOMAIN_INSIGHT_EXPLANATION_H
#define LIB_DOMAIN_INSIGHT_EXPLANATION_H

#include <string>
#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/insight/reading.h"
#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

// What stands before and behind the last "@"; false where one of them is missing.
MDOMAIN_EXPORT bool SplitAddress(const std::string& address, std::string& local_part,
                                 std::string& domain);
// The one of the domains that has the name, in either spelling; null for none.
const KnownDomain* FindNamed(const std::vector<KnownDomain>& domains, const std::string& name);

// Nobody knows an address of a domain that is not among `domains`. The account system is asked
// about the account that gets the mail, no program of the host is.
MDOMAIN_EXPORT mdomain::Explanation Explain(const std::string& address,
                                            const std::vector<KnownDomain>& domains);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_EXPLANATION_H
