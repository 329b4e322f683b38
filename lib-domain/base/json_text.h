// JSON documents as texts (RFC 8259).
#ifndef LIB_DOMAIN_BASE_JSON_TEXT_H
#define LIB_DOMAIN_BASE_JSON_TEXT_H

#include <json/value.h>

#include <string>

namespace MDOMAIN::BASE {

// By the letter of RFC 8259, at most 64 levels deep. Why that failed in one line, or the empty
// string.
std::string ParseJson(const std::string& bytes, Json::Value& value);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_JSON_TEXT_H
