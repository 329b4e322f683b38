// Files, folders, owners.
//
// Paths are used as given: fixed ones get their root prefix from the caller. A null path or name is
// a failure, never a crash.
#ifndef PLATFORM_FILES_H
#define PLATFORM_FILES_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/include/export.h"

// Sets owner (and its primary group, with the ids of mailUGidGet) and mode, whatever the umask. A
// symbolic link is refused, not followed. 0, or negative with one log line; a file whose owner
// cannot be set keeps its mode.
MDOMAIN_EXPORT int mailFileOwnerModeSet(const char* path, const char* owner, unsigned mode);

// Ids of a service account. 0, or negative with the ids untouched when it does not exist. Below a
// root prefix a missing account gives 0 and the caller's own effective ids; for a caller other than
// root, who could not give files away, so does every account.
MDOMAIN_EXPORT int mailUGidGet(const char* owner, uid_t* uid, gid_t* gid);

// True for anything at `path`, a folder too; false for a link that leads nowhere.
MDOMAIN_EXPORT bool KLIBCFileExist(const char* path);
// Creates an empty file (mode 0644, whatever the umask) or sets its times to now. One that the
// caller may not write to, in a folder that it may, is replaced. 0, or negative with errno set.
// Neither the file nor its folder may be a symbolic link: ELOOP, ENOTDIR.
MDOMAIN_EXPORT int KLIBCFileTouch(const char* path);
namespace korvmailserver {
// The same for the files of these names in one folder; the names that failed.
MDOMAIN_EXPORT std::vector<std::string> TouchAll(const std::string& folder,
                                                 const std::vector<std::string>& names);
}  // namespace korvmailserver
// Creates a folder with all missing parents; the folders that it makes get owner, group and mode,
// whatever the umask. A folder that exists is left as it is: 0. Negative with errno set on failure
// (ENOTDIR when something else is in the way); parents made before it stay.
MDOMAIN_EXPORT int KORVFSMkdirP(const char* path, uid_t uid, gid_t gid, mode_t mode);

namespace postara {
namespace sdk {

// As KLIBCFileExist.
MDOMAIN_EXPORT bool Exist(const std::string& path);
// Removes a file. 0, or negative with errno set (ENOENT when it is missing).
MDOMAIN_EXPORT int Unlink(const std::string& path);
// Replaces `names` by the names of a folder's entries in ascending byte order, without "." and
// "..". 0, or negative with errno set and `names` untouched.
MDOMAIN_EXPORT int EnumDirectory(const std::string& path, std::vector<std::string>& names);

}  // namespace sdk
}  // namespace postara

namespace korvmailserver {

// The account that owns what the mail server reads and writes.
constexpr char kServiceAccount[] = "Postara-Server";

enum class FolderResult {
  kDone,
  kNoAccount,  // the service account does not exist
  kFailed,     // errno is set
};
// Makes a folder of the service account with all missing parents, as KORVFSMkdirP does. A symbolic
// link in its place fails with ELOOP unless root made it.
MDOMAIN_EXPORT FolderResult MakeServiceFolder(const std::string& path, mode_t mode);

// EnumDirectory for folders that need not be there: a missing one gives no names. True, or false
// with a log line that names the folder and what is wrong, `names` untouched.
MDOMAIN_EXPORT bool ListFolder(const std::string& path, std::vector<std::string>& names);

// Replaces or creates a file so that a reader sees the old or the new bytes, whole: written beside
// it, synced, renamed over it, the folder synced. Mode as given, whatever the umask; where the
// caller may give files away, the new file gets the owner of the old one. Only a regular file is
// replaced: a symbolic link is neither followed nor replaced (ELOOP), nor is a folder (EISDIR), a
// device or a pipe (ENOTSUP). 0, or negative with errno set and the old file untouched.
MDOMAIN_EXPORT int ReplaceFile(const std::string& path, const std::string& bytes, mode_t mode);
// Removes what killed processes left in a folder on its way into place (ReplaceFile, databases,
// folders), known by its name and by a lock that ends with its maker. Failures are passed over.
MDOMAIN_EXPORT void RemoveLeftovers(const std::string& folder);
// Whether files in this folder are safe from others: it belongs to root, the service account, the
// caller or, below a root prefix, the owner of that root, and only its owner or group can write to
// it, or nobody can remove what is another's (sticky). False with the reason in `why`; a folder
// that does not exist is safe.
MDOMAIN_EXPORT bool IsSafeFolder(const std::string& folder, std::string& why);
// Gives a file back to the service account, and makes an empty one readable as `mode` says, when
// the caller may: a restored copy, or what a killed process left. One that group or others may
// write to gets `mode` too. Failures are passed over, and a symbolic link is left alone.
MDOMAIN_EXPORT void MendServiceFile(const std::string& path, mode_t mode);
// Makes a rename or removal of `path` survive a crash: syncs its folder. Not every file system can;
// the file is in place either way, so no failure is reported.
MDOMAIN_EXPORT void SyncFolderOf(const std::string& path);
// Replaces `bytes` by those of a file. 0, or negative with errno set and `bytes` untouched.
MDOMAIN_EXPORT int ReadFile(const std::string& path, std::string& bytes);

}  // namespace korvmailserver

#endif  // PLATFORM_FILES_H
