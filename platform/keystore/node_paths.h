// Where a pulled file belongs. Internal to platform/keystore.
#ifndef PLATFORM_KEYSTORE_NODE_PATHS_H
#define PLATFORM_KEYSTORE_NODE_PATHS_H

#include <sys/types.h>

#include <string>

#include "platform/include/nodes.h"

namespace korvmailserver {

struct PublishedPlace {
  std::string path;  // without a root prefix
  mode_t mode = 0;
};

// Where the file that is published under a known key belongs. What the store says about it must be
// that very path; it decides nothing but the name in front of "_DOMAIN.db". False with a reason
// that names key and path for any other key or path.
bool PlaceOfPublished(const PublishedFile& file, PublishedPlace& place, std::string& error);

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_NODE_PATHS_H
