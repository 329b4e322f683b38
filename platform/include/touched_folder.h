// One folder for many flag files.
#ifndef PLATFORM_TOUCHED_FOLDER_H
#define PLATFORM_TOUCHED_FOLDER_H

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// While one lives KLIBCFileTouch finds a file of this folder without going through the whole path
// again: for many files, one after the other. The folder is named as in the paths of the files, up
// to its last "/". One at a time.
class MDOMAIN_EXPORT TouchedFolder {
 public:
  explicit TouchedFolder(const std::string& folder);
  ~TouchedFolder();
  TouchedFolder(const TouchedFolder&) = delete;
  TouchedFolder& operator=(const TouchedFolder&) = delete;
};

}  // namespace korvmailserver

#endif  // PLATFORM_TOUCHED_FOLDER_H
