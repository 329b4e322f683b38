// The root prefix of every fixed path, read anew at each call so that one process can work on
// several roots after each other.
#include "platform/include/root_path.h"

#include <cstdlib>

namespace korvmailserver {

std::string RootPrefix() {
  const char* value = secure_getenv("MDOMAIN_ROOT");
  std::string root = value == nullptr ? "" : value;
  root.erase(root.find_last_not_of('/') + 1);
  return root;
}

std::string UnderRoot(const std::string& absolute_path) {
  return RootPrefix() + absolute_path;
}

}  // namespace korvmailserver
