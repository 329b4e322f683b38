// Files, folders, owners.
#ifndef PLATFORM_FILES_H
#define PLATFORM_FILES_H

#include <sys/types.h>

#include <string>
#include <vector>

// Sets owner (and its primary group) and mode. Below a root prefix a missing account means the
// caller's own ids. 0, or negative with one log line.
int mailFileOwnerModeSet(const char* path, const char* owner, unsigned mode);

// Ids of a service account. 0, or negative when it does not exist; below a root prefix a missing
// account gives the caller's own effective ids and 0.
int mailUGidGet(const char* owner, uid_t* uid, gid_t* gid);

bool KLIBCFileExist(const char* path);
// Creates an empty file or sets its times to now. 0, or negative with errno set.
int KLIBCFileTouch(const char* path);
// Creates a folder with all missing parents; the folders that it makes get owner, group and mode.
// An existing folder is success and left as it is. 0, or negative with errno set.
int KORVFSMkdirP(const char* path, uid_t uid, gid_t gid, mode_t mode);

namespace postara {
namespace sdk {

bool Exist(const std::string& path);
// Removes a file. 0, or negative with errno set (ENOENT when it is missing).
int Unlink(const std::string& path);
// Names of the entries of a folder, ascending, without "." and "..". 0, or negative with errno set.
int EnumDirectory(const std::string& path, std::vector<std::string>& names);

}  // namespace sdk
}  // namespace postara

namespace korvmailserver {

// Replaces or creates a file so that a reader sees the old or the new bytes, whole: written beside
// it, synced, renamed over it, the folder synced. Mode as given. 0, or negative with errno set and
// the old file untouched.
int ReplaceFile(const std::string& path, const std::string& bytes, mode_t mode);
// The bytes of a file. 0, or negative with errno set.
int ReadFile(const std::string& path, std::string& bytes);

}  // namespace korvmailserver

#endif  // PLATFORM_FILES_H
