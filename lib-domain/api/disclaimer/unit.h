// What the sources of the MimeDefang class share: reading and writing JSON, the domains.
#ifndef LIB_DOMAIN_API_DISCLAIMER_UNIT_H
#define LIB_DOMAIN_API_DISCLAIMER_UNIT_H

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "lib-domain/base/log_line.h"
#include "lib-domain/record/domain.h"

namespace MDOMAIN::API::INTERNAL {

std::string DisclaimerListKey(int domain_idx);

// Strict JSON: nothing after the value, no comments, no repeated member. False leaves `value` null.
bool ParseJson(const std::string& text, Json::Value& value);
// Compact, strings in UTF-8 as they are.
std::string WriteJson(const Json::Value& value);

bool IsArrayOfObjects(const Json::Value& value);

// Every domain in listing order, with index and name; no user is counted.
bool ListAllDomains(std::vector<RECORD::Domain>& domains);

// A list as it is stored, without its texts; the value of a domain that has none is empty text and
// gives an empty array.
bool ParseStoredList(const std::string& text, Json::Value& list);

// The stored text of every domain's list, by domain, with one read; false with a log line.
bool ReadStoredTexts(const std::vector<RECORD::Domain>& domains, std::map<int, std::string>& texts);

// A domain's list with its texts, from the list as it is stored. 0, or negative with a log line.
// Defined in lists.cpp.
int ComposeList(int domain_idx, const std::string& text, Json::Value& list);

// A pattern of type "uid" or "gid": a number, or a text that is one.
bool PatternAsId(const Json::Value& pattern, unsigned int& id);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_UNIT_H
