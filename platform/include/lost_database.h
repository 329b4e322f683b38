// Databases that a process has had open, so that one that is gone since is not taken for a new one:
// made anew in its place, an empty one would be published.
//
// For the sources of this project only; it is not installed.
#ifndef PLATFORM_LOST_DATABASE_H
#define PLATFORM_LOST_DATABASE_H

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// There is a database at the path, and this process works on it.
void NoteDatabase(const std::string& path);
// Nothing is at the path, although NoteDatabase was called with it. True with one log line.
MDOMAIN_EXPORT bool IsDatabaseLost(const std::string& path);
// From now on a missing one is a new one: it was removed on purpose, or nobody works on it any
// more.
MDOMAIN_EXPORT void ForgetDatabase(const std::string& path);
// The same for all below a folder.
MDOMAIN_EXPORT void ForgetDatabasesBelow(const std::string& folder);

}  // namespace korvmailserver

#endif  // PLATFORM_LOST_DATABASE_H
