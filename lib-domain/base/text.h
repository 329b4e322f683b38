// Numbers and lists in text form, as SQL, configuration values and log lines need them.
#ifndef LIB_DOMAIN_BASE_TEXT_H
#define LIB_DOMAIN_BASE_TEXT_H

#include <string>
#include <vector>

namespace MDOMAIN::BASE {

// Base-10 text to number. False, with `value` untouched, unless the whole text is a number in
// range.
bool ConvertToInt(const std::string& text, int& value);
bool ConvertToUID(const std::string& text, unsigned int& uid);
bool ConvertToGID(const std::string& text, unsigned int& gid);

// Elements in order with `separator` between them; an empty list gives the empty string.
std::string Join(const std::vector<std::string>& items, const std::string& separator);
std::string Join(const std::vector<int>& items, const std::string& separator);
std::string Join(const std::vector<unsigned int>& items, const std::string& separator);

// ASCII letters to lower case, other bytes unchanged.
std::string ToLowerAscii(std::string text);
// Whether the texts are equal but for the case of ASCII letters, as SQLite's NOCASE compares.
bool EqualsIgnoreCase(const std::string& a, const std::string& b);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_TEXT_H
