// The disclaimers of all domains as one value: an array of objects with "domain_id" and
// "disclaimer_list". What such a value must be before anything is written for it.
#ifndef LIB_DOMAIN_API_DISCLAIMER_SYSTEM_VIEW_H
#define LIB_DOMAIN_API_DISCLAIMER_SYSTEM_VIEW_H

#include <json/value.h>

#include <string>

namespace MDOMAIN::API::INTERNAL {

// Whether every element that would be set can be; otherwise `error` says what is wrong.
bool CheckSystemView(const Json::Value& all, std::string& error);

// Whether every element names a domain: another file, a list of one domain's disclaimers for one,
// must not pass for a view in which no domain has any. `all` is an array of objects.
bool NamesDomains(const Json::Value& all);

// A view in a file also has "domain_name", since an index may be another domain's by the time it is
// read. Adds the names. False with a log line when the domains cannot be listed.
bool AddDomainNames(Json::Value& all);
// Gives every element that has a name the index that its domain has now; its list is dropped when
// it is empty and the domain is gone. False with a log line when a domain with disclaimers is gone,
// when two elements are one domain's, or when the domains cannot be listed.
bool TakeIndexesByName(Json::Value& all);

// Whether two views have the same disclaimers in every domain.
bool HaveSameDisclaimers(const Json::Value& a, const Json::Value& b);

// Whether every domain with disclaimers exists: those of a deleted one would come back with the
// next domain of its index. False with a log line, also when the domains cannot be listed.
bool AreDomainsKnown(const Json::Value& all);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_SYSTEM_VIEW_H
