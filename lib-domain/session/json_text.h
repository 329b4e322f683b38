// JSON documents as texts (RFC 8259).
#ifndef LIB_DOMAIN_SESSION_JSON_TEXT_H
#define LIB_DOMAIN_SESSION_JSON_TEXT_H

#include <json/value.h>

#include <string>

namespace mdomain::session {

// UTF-8, indented, members by name, with a line end.
std::string JsonText(const Json::Value& value);
// At most 64 levels. Why that failed in one line, or the empty string.
std::string ParseJson(const std::string& text, Json::Value& value);

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_JSON_TEXT_H
