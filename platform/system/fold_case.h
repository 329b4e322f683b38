// One spelling for names that differ in letter case only.
#ifndef PLATFORM_SYSTEM_FOLD_CASE_H
#define PLATFORM_SYSTEM_FOLD_CASE_H

#include <string>

namespace korvmailserver {

// Simple case folding of all of Unicode, in NFC; ASCII letters only where the bytes are not UTF-8.
std::string FoldCase(const std::string& name);

}  // namespace korvmailserver

#endif  // PLATFORM_SYSTEM_FOLD_CASE_H
