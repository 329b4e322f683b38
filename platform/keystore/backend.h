// What a key store is behind the mail configuration and PostaraServerBACKENDWrap.
//
// One backend is in force per process, for the root prefix of the moment: the embedded store, or
// that store with its copy on the server that the host settings name.
#ifndef PLATFORM_KEYSTORE_BACKEND_H
#define PLATFORM_KEYSTORE_BACKEND_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/host_settings.h"
#include "platform/include/maillog.h"

namespace korvmailserver {

class CopiedStore;

// Names of the trees that exist besides the root tree "".
extern const std::vector<std::string>& kKeyStoreTrees;

// The tree in which a key lies.
std::string KeyStoreTreeOf(const std::string& key);

// Operations return false with `error` set to a reason without a line end; an empty `error` means
// that the reason is in the log already. Keys and values are any bytes.
class KeyStoreBackend {
 public:
  using Entries = std::vector<std::pair<std::string, std::string>>;

  virtual ~KeyStoreBackend() = default;

  // What log lines call the store: a path or an address.
  virtual std::string Name() const = 0;

  // Adds those of `keys` that are stored to `values`.
  virtual bool Get(const std::vector<std::string>& keys, std::map<std::string, std::string>& values,
                   std::string& error) = 0;
  // Writes the entries whose stored value differs, and removes keys with what setFile published
  // under them, all or none. Each key is given once; a missing one is no failure. Nothing is
  // written when nothing differs.
  virtual bool Write(const Entries& entries, const std::vector<std::string>& removed_keys,
                     std::string& error) = 0;
  // Calls `use` with the names of the keys of one tree, ascending; with some where it fails.
  using KeyUse = std::function<void(const std::string& key)>;
  virtual bool List(const std::string& tree, const KeyUse& use, std::string& error) = 0;
  // Every key with its value.
  virtual bool All(std::map<std::string, std::string>& values, std::string& error) = 0;
  // Stores `path` as the key's value, which publishes the file where machines share the store.
  virtual bool SetFile(const std::string& key, const std::string& path, std::string& error) = 0;
  // True when what is written now would be kept.
  virtual bool IsHealthy(std::string& error) = 0;
  // This store where it is shared between machines, else null.
  virtual CopiedStore* Shared() { return nullptr; }
};

// Those of `entries` that `stored` lacks or has another value for.
KeyStoreBackend::Entries ChangedEntries(const KeyStoreBackend::Entries& entries,
                                        const std::map<std::string, std::string>& stored);

// Runs `operation` on the backend in force and logs its failure as one line at `log_level`.
// Unusable host settings fail every operation, with their own text. An operation that uses the
// store itself runs on the one that is in force already.
bool RunOnKeyStore(
    const std::function<bool(KeyStoreBackend& backend, std::string& error)>& operation,
    int log_level = kLogError);

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_BACKEND_H
