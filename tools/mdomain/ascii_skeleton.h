// What ICU's confusables make of ASCII, without ICU, whose loading costs more than a short command
// does. Nearly every alias is ASCII.
#ifndef TOOLS_MDOMAIN_ASCII_SKELETON_H
#define TOOLS_MDOMAIN_ASCII_SKELETON_H

#include <algorithm>
#include <string>

namespace mdomain {

inline bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// The text that stands for all ASCII texts that look like this one. No letter of it combines with
// another.
inline std::string AsciiSkeleton(const std::string& text) {
  std::string skeleton;
  for (const char c : text) {
    switch (c) {
      case '"':
        skeleton += "''";
        break;
      case '%':
        skeleton += "\u00BA/\u2080";
        break;
      case '0':
        skeleton += 'O';
        break;
      case '1':
      case 'I':
      case '|':
        skeleton += 'l';
        break;
      case '`':
        skeleton += '\'';
        break;
      case 'm':
        skeleton += "rn";
        break;
      default:
        skeleton += c;
    }
  }
  return skeleton;
}

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_ASCII_SKELETON_H
