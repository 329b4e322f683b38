// Everything about one account: why it is where it is, and what is its own.
#ifndef LIB_DOMAIN_INSIGHT_PERSON_H
#define LIB_DOMAIN_INSIGHT_PERSON_H

#include <vector>

#include "lib-domain/insight/answers.h"
#include "lib-domain/insight/reading.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

// What the account has in these domains, without what AddReasons adds. Its groups are all of them.
MDOMAIN_EXPORT mdomain::Person DescribePerson(const RECORD::User& user,
                                              const std::vector<KnownDomain>& domains);

// What the patterns of the domains would give, for which the account system is asked, and the
// disclaimers of the domains that fit his mail.
void AddReasons(mdomain::Person& person);

// What somebody may know who has no rights.
mdomain::OwnView DescribeOwn(const RECORD::User& user, const std::vector<KnownDomain>& domains);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_PERSON_H
