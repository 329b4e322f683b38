// JSON documents as texts (RFC 8259).
#ifndef LIB_DOMAIN_BASE_JSON_TEXT_H
#define LIB_DOMAIN_BASE_JSON_TEXT_H

#include <json/value.h>

#include <string>

namespace MDOMAIN::BASE {

// By the letter of RFC 8259, at most 64 levels deep. Why that failed in one line, or the empty
// string.
std::string ParseJson(const std::string& bytes, Json::Value& value);

// UTF-8 with one element per line, members by name, and a line end. Bytes that are not UTF-8 become
// U+FFFD, characters that cannot be seen are escaped.
std::string JsonText(const Json::Value& value);
// The parts of such a text: a value without elements on one line, and any value, whose further
// lines begin with `indent`, added to `text`.
std::string JsonScalar(const Json::Value& value);
void AppendJson(const Json::Value& value, const std::string& indent, std::string& text);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_JSON_TEXT_H
