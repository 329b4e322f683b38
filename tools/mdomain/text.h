// Texts on their way between an administrator and the library.
#ifndef TOOLS_MDOMAIN_TEXT_H
#define TOOLS_MDOMAIN_TEXT_H

#include <string>
#include <vector>

namespace mdomain {

// Refuses a value that is not UTF-8 or holds control characters; `what` names it in the message.
void RequirePlainText(const std::string& what, const std::string& value);

// `text` for a terminal: control characters and bytes that are not UTF-8 become "?", so that an
// account name cannot move the cursor or start a line.
std::string Printable(const std::string& text);

// `text` as UTF-8, which JSON demands: other bytes become U+FFFD.
std::string ValidUtf8(const std::string& text);

// Columns that a printable text takes on a terminal.
int Width(const std::string& text);

// "1 user", "2 users".
std::string Counted(size_t count, const std::string& noun);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_TEXT_H
