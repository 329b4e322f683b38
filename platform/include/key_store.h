// The backend key store: names and values, in trees, and the state of the cluster behind it.
#ifndef PLATFORM_KEY_STORE_H
#define PLATFORM_KEY_STORE_H

#include <functional>
#include <string>
#include <vector>

#include "platform/include/export.h"

namespace KORV {
namespace POSTARA_SERVER {

// Keys "additional_domain-N" lie in the tree "virtual_domain", all others in the root tree "". The
// values are those of the mail configuration: mailConfGet of a key that setFile wrote gives the
// path.
//
// Every call opens what it needs and keeps its connection for the next one; a change of the root
// prefix or of the host settings is noticed. A failure is one log line that names the store and the
// reason, or the mistake in the host settings. No call waits longer than the key store's time-outs.
// Where machines share a store, everything is answered from, and stored in, this machine's own;
// what is published of it, and who may change anything, stands in nodes.h.
class MDOMAIN_EXPORT PostaraServerBACKENDWrap {
 public:
  // Stores a file's path under `key`; where machines share the store, the file is published as it
  // is (of an SQLite database, its last committed state). False when the path cannot be stored or,
  // there, the file cannot be read.
  static bool setFile(const std::string& key, const std::string& path);
  // Names of the keys of a tree, ascending by bytes. An unknown tree is empty. False on failure,
  // with `keys` untouched.
  static bool ls(const std::string& tree, std::vector<std::string>& keys);
  // Those for which `is_wanted` is true, which is asked in the same order.
  static bool ls(const std::string& tree,
                 const std::function<bool(const std::string& key)>& is_wanted,
                 std::vector<std::string>& keys);
  // Whether a key (of any tree, found by its name) is there. False also on failure.
  static bool exist(const std::string& key);
  // Removes a key, and what setFile published under it; a missing one is no failure.
  static bool removeKey(const std::string& key);
  // The same for several, all or none, with one message to the store.
  static bool removeKeys(const std::vector<std::string>& keys);
  // Path stored by setFile; the empty string when there is none. False on failure, with `path`
  // untouched.
  static bool getFile(const std::string& key, std::string& path);
};

class MDOMAIN_EXPORT KORVMailNodeCluster {
 public:
  // True when what is changed now would be kept on this machine: whether the store that machines
  // share takes it as well is told by nodes.h. `level` belongs to the mail server's interface and
  // is ignored. False logs its reason as a warning (level 1) and not as an error: the caller
  // decides what it means.
  static bool isClusterHealth(int level);
  // PostaraServerBACKENDWrap::setFile under a cluster file key. 0 on success, negative on failure.
  static int setFile(const std::string& key, const std::string& path);
};

}  // namespace POSTARA_SERVER
}  // namespace KORV

namespace korvmailserver {

// How the key store is read while the object lives: an operation that asks for many keys, one after
// the other, and changes few, reads them all once. In one thread; an inner object decides.
class MDOMAIN_EXPORT KeyStoreView {
 public:
  enum class Kind {
    // Answers are of one moment, and of another one after each change by this process. What a
    // change is compared with is of the moment of the change.
    kOneMoment,
    kCurrent,  // each call reads anew, as without a view
  };
  explicit KeyStoreView(Kind kind);
  ~KeyStoreView();
  KeyStoreView(const KeyStoreView&) = delete;
  KeyStoreView& operator=(const KeyStoreView&) = delete;

  // The number of the moment, which no other one has; 0 where each call reads anew.
  static unsigned long Moment();

 private:
  const unsigned long outer_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEY_STORE_H
