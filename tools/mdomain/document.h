// JSON documents that an administrator hands over.
#ifndef TOOLS_MDOMAIN_DOCUMENT_H
#define TOOLS_MDOMAIN_DOCUMENT_H

#include <string>

#include "tools/mdomain/status.h"

namespace mdomain {

// The bytes of a file, of standard input for "-". One that cannot be read ends the command with
// `missing`.
std::string ReadInput(const std::string& name, Status missing);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOCUMENT_H
