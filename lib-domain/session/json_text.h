// JSON documents as texts (RFC 8259).
#ifndef LIB_DOMAIN_SESSION_JSON_TEXT_H
#define LIB_DOMAIN_SESSION_JSON_TEXT_H

#include <json/value.h>

#include <string>

#include "lib-domain/base/json_text.h"

namespace mdomain::session {

using MDOMAIN::BASE::JsonText;
// At most 64 levels. Why that failed in one line, or the empty string.
std::string ParseJson(const std::string& text, Json::Value& value);

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_JSON_TEXT_H
