// Answers about why and what is wrong, as JSON.
#ifndef LIB_DOMAIN_SESSION_JSON_INSIGHT_H
#define LIB_DOMAIN_SESSION_JSON_INSIGHT_H

#include <json/value.h>

#include "lib-domain/session/mdomain.hpp"

namespace mdomain::session {

Json::Value JsonOf(const DomainName& domain);
Json::Value JsonOf(const Holder& holder);
Json::Value JsonOf(const Step& step);
Json::Value JsonOf(const FittingDisclaimer& disclaimer);
Json::Value JsonOf(const DisclaimerVerdict& verdict);
Json::Value JsonOf(const Explanation& explanation);
Json::Value JsonOf(const PersonAlias& alias);
Json::Value JsonOf(const PersonDomain& domain);
Json::Value JsonOf(const PersonAddress& address);
Json::Value JsonOf(const PersonCopy& copy);
Json::Value JsonOf(const Person& person);
Json::Value JsonOf(const TakenAddress& address);
Json::Value JsonOf(const OwnCopy& copy);
Json::Value JsonOf(const OwnView& own);
Json::Value JsonOf(const DomainOverview& overview);
Json::Value JsonOf(const Finding& finding);
Json::Value JsonOf(const RepairReport& report);

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_JSON_INSIGHT_H
