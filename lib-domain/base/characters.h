// The characters of UTF-8 texts that may hold other bytes.
#ifndef LIB_DOMAIN_BASE_CHARACTERS_H
#define LIB_DOMAIN_BASE_CHARACTERS_H

#include <functional>
#include <string>

namespace MDOMAIN::BASE {

// Calls `use(character, start, length)` for each character, and for each byte that is not UTF-8
// with character U+FFFD.
void ForEachCharacter(const std::string& text,
                      const std::function<void(char32_t, size_t, size_t)>& use);

// `text` as UTF-8, which JSON demands: other bytes become U+FFFD.
std::string ValidUtf8(const std::string& text);

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_CHARACTERS_H
