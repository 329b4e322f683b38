// Texts on their way between an administrator and the library.
#ifndef TOOLS_MDOMAIN_TEXT_H
#define TOOLS_MDOMAIN_TEXT_H

#include <string>
#include <vector>

#include "lib-domain/base/characters.h"

namespace mdomain {

// Refuses a value that is not UTF-8 or holds control or hidden characters; `what` names it in the
// message.
void RequirePlainText(const std::string& what, const std::string& value);

// From now on what is shown has `shown` in the place of `folder`: of copies it names the files that
// they stand for.
void ShowInPlaceOf(const std::string& folder, const std::string& shown);
std::string AsShown(std::string text);

// `text` for a terminal, as shown: control and hidden characters and bytes that are not UTF-8 are
// shown by their numbers, so that an account name cannot move the cursor, start a line, or look
// like another.
std::string Printable(const std::string& text);

using MDOMAIN::BASE::ForEachCharacter;

// Columns that a printable text takes on a terminal.
int Width(const std::string& text);

// "a, b, c", of more than ten the first ten "and N more".
std::string FirstOf(const std::vector<std::string>& texts, const std::string& separator = ", ");

// "1 user", "2 users".
std::string Counted(size_t count, const std::string& noun);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_TEXT_H
