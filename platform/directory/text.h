// Texts that a directory is queried with, and what counts as text in its answers.
#ifndef PLATFORM_DIRECTORY_TEXT_H
#define PLATFORM_DIRECTORY_TEXT_H

#include <string>

namespace korvmailserver::directory {

// UTF-8 without zero bytes.
bool IsText(const std::string& value);

// The filter "`attribute` is `value`", with every byte escaped that means something in a filter.
std::string Equals(const std::string& attribute, const std::string& value);
// The filter that asks for both. `filter` may lack its outer brackets.
std::string Both(const std::string& filter, const std::string& other);

// One spelling for all spellings of a DN.
std::string FoldDn(const std::string& dn);

}  // namespace korvmailserver::directory

#endif  // PLATFORM_DIRECTORY_TEXT_H
