// Alias patterns as they are typed.
#ifndef TOOLS_MDOMAIN_PATTERN_H
#define TOOLS_MDOMAIN_PATTERN_H

#include <string>

#include "tools/mdomain/status.h"

namespace mdomain {

// The refusal of a text without a placeholder.
Failure NoPattern(const std::string& pattern);

// Refuses a pattern whose text around the placeholders is not allowed in a local part: it would
// give nobody an address. A text without placeholders is let through.
void RequireUsablePattern(const std::string& pattern);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_PATTERN_H
