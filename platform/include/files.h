// Files, folders, owners.
//
// Paths are used as given: fixed ones get their root prefix from the caller. A null path or name is
// a failure, never a crash.
#ifndef PLATFORM_FILES_H
#define PLATFORM_FILES_H

#include <sys/types.h>

#include <string>
#include <vector>

// Sets owner (and its primary group, with the ids of mailUGidGet) and mode, whatever the umask. A
// symbolic link is refused, not followed. 0, or negative with one log line; a file whose owner
// cannot be set keeps its mode.
int mailFileOwnerModeSet(const char* path, const char* owner, unsigned mode);

// Ids of a service account. 0, or negative with the ids untouched when it does not exist. Below a
// root prefix an account that is missing gives the caller's own effective ids and 0; so does every
// account for a caller other than root, who could not give files away.
int mailUGidGet(const char* owner, uid_t* uid, gid_t* gid);

// True for anything at `path`, a folder too; false for a link that leads nowhere.
bool KLIBCFileExist(const char* path);
// Creates an empty file (mode 0644 less the umask) or sets its times to now. 0, or negative with
// errno set; ELOOP for a symbolic link, which is not followed.
int KLIBCFileTouch(const char* path);
// Creates a folder with all missing parents; the folders that it makes get owner, group and mode,
// whatever the umask. An existing folder is success and left as it is. 0, or negative with errno
// set (ENOTDIR when something else stands in the way); parents made before the failure stay.
int KORVFSMkdirP(const char* path, uid_t uid, gid_t gid, mode_t mode);

namespace postara {
namespace sdk {

// As KLIBCFileExist.
bool Exist(const std::string& path);
// Removes a file. 0, or negative with errno set (ENOENT when it is missing).
int Unlink(const std::string& path);
// Replaces `names` by the names of a folder's entries in ascending byte order, without "." and
// "..". 0, or negative with errno set and `names` untouched.
int EnumDirectory(const std::string& path, std::vector<std::string>& names);

}  // namespace sdk
}  // namespace postara

namespace korvmailserver {

// Replaces or creates a file so that a reader sees the old or the new bytes, whole: written beside
// it, synced, renamed over it, the folder synced. Mode as given, whatever the umask; the owner
// stays that of the old file where the caller may give files away. A symbolic link is replaced, not
// followed. 0, or negative with errno set and the old file untouched.
int ReplaceFile(const std::string& path, const std::string& bytes, mode_t mode);
// Replaces `bytes` by those of a file. 0, or negative with errno set and `bytes` untouched.
int ReadFile(const std::string& path, std::string& bytes);

}  // namespace korvmailserver

#endif  // PLATFORM_FILES_H
