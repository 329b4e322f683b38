// Copies of what this machine has, file by file, into a folder: of a database its last committed
// state, also while others write.
#ifndef LIB_DOMAIN_SYNC_FILE_COPIES_H
#define LIB_DOMAIN_SYNC_FILE_COPIES_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace MDOMAIN::UTILS::INTERNAL {

struct CopiedAs {
  uid_t uid = 0;
  gid_t gid = 0;
  bool is_lasting = true;  // survives a crash; else the disk is not waited for
};

// True when everything that exists was copied; otherwise `error` names the file and the reason.
// Modes stay as they are, the owner is that of `as`.

// The model files, the settings, the alias store and the embedded key store, and `further` ones.
bool CopyDatabases(const std::string& folder, const std::vector<std::string>& further,
                   const CopiedAs& as, std::string& error);
// A folder and the files in it, under its name.
bool CopyFolder(const std::string& from, const std::string& folder, const CopiedAs& as,
                std::string& error);

// A descriptor by which a maker holds a folder of copies until it is closed, so that others know
// those that a killed one left; -1 when somebody else holds it.
int HoldFolder(const std::string& folder);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_FILE_COPIES_H
