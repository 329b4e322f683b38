// JSON documents that an administrator hands over.
#ifndef TOOLS_MDOMAIN_DOCUMENT_H
#define TOOLS_MDOMAIN_DOCUMENT_H

#include <json/value.h>

#include <string>

#include "tools/mdomain/status.h"

namespace mdomain {

// The bytes of a file, of standard input for "-". One that cannot be read ends the command with
// `missing`.
std::string ReadInput(const std::string& name, Status missing);

// By the letter of RFC 8259, at most 64 levels deep. Why that failed in one line, or the empty
// string.
std::string ParseJson(const std::string& bytes, Json::Value& value);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOCUMENT_H
