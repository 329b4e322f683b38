// Texts that tell whether files are still as they were, also in another process.
#ifndef PLATFORM_FILE_STATE_H
#define PLATFORM_FILE_STATE_H

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// A text that this state of this file alone has, by its identity, size and times; another text
// where there is no file. Empty when nothing can be told: the file changed a moment ago, and its
// times would not show a second change. Take it before the file is read.
MDOMAIN_EXPORT std::string FileState(const std::string& path);

// The same of all files that the local accounts follow from, the host settings included. Empty also
// within an AccountSnapshot, which may be older.
MDOMAIN_EXPORT std::string LocalAccountsState();

}  // namespace korvmailserver

#endif  // PLATFORM_FILE_STATE_H
