// What the sources of the MimeDefang class share: the name under which they log, reading and
// writing JSON, the domains. Not installed.
#ifndef LIB_DOMAIN_API_MIMEDEFANG_UNIT_H
#define LIB_DOMAIN_API_MIMEDEFANG_UNIT_H

#define MDOMAIN_LOG_SOURCE "lib-domain/api/mimedefang.cpp"

#include <json/value.h>

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

// Every domain in listing order.
bool ListAllDomains(std::vector<RECORD::Domain>& domains);

// The stored list without its texts; a domain that has none gives an empty array.
bool ReadStoredList(int domain_idx, std::string& text, Json::Value& list);

// A pattern of type "uid" or "gid": a number, or a text that is one.
bool PatternAsId(const Json::Value& pattern, unsigned int& id);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_MIMEDEFANG_UNIT_H
