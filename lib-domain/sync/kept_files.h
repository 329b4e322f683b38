// A copy of what this machine has, before something else takes its place.
#ifndef LIB_DOMAIN_SYNC_KEPT_FILES_H
#define LIB_DOMAIN_SYNC_KEPT_FILES_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// Copies the model files, the settings, the alias store, the registry of address owners, the
// embedded key store and the texts of the disclaimers into a new folder beside them,
// "kept-20261122T040506Z" (the time in UTC; a second one within that second ends with "-2"), which
// belongs to the service account alone (mode 0700). Of a database its last committed state is
// copied, also while others write. Each file keeps its name, the texts their folder; what does not
// exist is passed over.
//
// `folder` gets the path of the new folder, root prefix included. False with one log line, and no
// such folder, when something cannot be copied: then nothing may take the files' place.
MDOMAIN_EXPORT bool KeepFilesAside(std::string& folder);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_KEPT_FILES_H
