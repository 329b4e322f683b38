// JSON as text (RFC 8259, UTF-8), and back.
#ifndef MDOMAIN_WEB_VIEW_JSON_TEXT_H
#define MDOMAIN_WEB_VIEW_JSON_TEXT_H

#include <json/value.h>

#include <string>

namespace mdomain_web {

std::string ToText(const Json::Value& value);
// Throws std::invalid_argument, which tells the place, for what is no JSON document, or is nested
// deeper than 64 levels.
Json::Value FromText(const std::string& text);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_VIEW_JSON_TEXT_H
