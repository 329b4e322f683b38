// The backend key store: names and values, in trees, and the state of the cluster behind it.
#ifndef PLATFORM_KEY_STORE_H
#define PLATFORM_KEY_STORE_H

#include <string>
#include <vector>

namespace KORV {
namespace POSTARA_SERVER {

// Keys "additional_domain-N" lie in the tree "virtual_domain", all others in the root tree "".
// Every call opens what it needs; a failure is one log line that names the store and the reason.
class PostaraServerBACKENDWrap {
 public:
  // Publishes a file under `key`: its path, and where machines share the store also size, digest
  // and content. False when the store cannot be written or, for a shared store, the file not read.
  static bool setFile(const std::string& key, const std::string& path);
  // Names of the keys of a tree, ascending. An unknown tree is empty. False on failure.
  static bool ls(const std::string& tree, std::vector<std::string>& keys);
  // Whether a key (of any tree, found by its name) is there. False also on failure.
  static bool exist(const std::string& key);
  // Removes a key; a missing one is no failure.
  static bool removeKey(const std::string& key);
  // Path stored by setFile; the empty string when there is none. False on failure.
  static bool getFile(const std::string& key, std::string& path);
};

class KORVMailNodeCluster {
 public:
  // True when what is published now would be kept. The embedded store: always, if it can be
  // written. `level` is the mail server's and ignored.
  static bool isClusterHealth(int level);
  // PostaraServerBACKENDWrap::setFile under a cluster file key. 0 on success, negative on failure.
  static int setFile(const std::string& key, const std::string& path);
};

}  // namespace POSTARA_SERVER
}  // namespace KORV

#endif  // PLATFORM_KEY_STORE_H
