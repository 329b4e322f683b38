// What a key store is behind the mail configuration and PostaraServerBACKENDWrap.
//
// One backend is in force per process: the one that the host settings name, for the root prefix of
// the moment. A new kind of store is one source with one Make function below.
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
#include "platform/include/node_files.h"

namespace korvmailserver {

// Names of the trees that exist besides the root tree "".
extern const std::vector<std::string> kKeyStoreTrees;

// The tree in which a key lies.
std::string KeyStoreTreeOf(const std::string& key);

// What machines that share a key store know of its files. Failures as in KeyStoreBackend.
class FileShare {
 public:
  // Receives a file's content piece by piece; false, with a reason in `error`, ends the transfer.
  class Receiver {
   public:
    virtual ~Receiver() = default;
    // The content starts anew, also when another one was published during the transfer.
    virtual bool Begin(std::string& error) = 0;
    virtual bool Append(const std::string& piece, std::string& error) = 0;
  };

  virtual ~FileShare() = default;
  virtual bool ListFiles(std::vector<PublishedFile>& files, std::string& error) = 0;
  // The file under `key`, or nothing.
  virtual bool DescribeFile(const std::string& key, std::vector<PublishedFile>& files,
                            std::string& error) = 0;
  // Hands the content under `key` to `receiver` and tells in `file` which one it was.
  virtual bool Fetch(const std::string& key, PublishedFile& file, Receiver& receiver,
                     std::string& error) = 0;
  // Adds those of `files`, keys and paths, that are not published as they are now to `changed`.
  virtual bool FindChanged(const std::vector<std::pair<std::string, std::string>>& files,
                           std::vector<std::pair<std::string, std::string>>& changed,
                           std::string& error) = 0;
  virtual bool RecordNodeFiles(const std::vector<NodeFile>& files, std::string& error) = 0;
  virtual bool ListNodeFiles(std::vector<NodeFile>& files, std::string& error) = 0;
};

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
  // Writes the entries whose stored value differs, all or none; each key is given once. Nothing is
  // written when nothing differs.
  virtual bool Set(const Entries& entries, std::string& error) = 0;
  // Removes keys and what setFile published under them, all or none; a missing one is no failure.
  virtual bool Remove(const std::vector<std::string>& keys, std::string& error) = 0;
  // Names of the keys of one tree, ascending.
  virtual bool List(const std::string& tree, std::vector<std::string>& keys,
                    std::string& error) = 0;
  // Every key with its value.
  virtual bool All(std::map<std::string, std::string>& values, std::string& error) = 0;
  // Stores `path` as the key's value; a shared store publishes the file's content with it.
  virtual bool SetFile(const std::string& key, const std::string& path, std::string& error) = 0;
  // True when what is written now would be kept.
  virtual bool IsHealthy(std::string& error) = 0;
  // The published contents; null when the store is not shared between machines.
  virtual FileShare* Files() { return nullptr; }
};

// Those of `entries` that `stored` lacks or has another value for.
KeyStoreBackend::Entries ChangedEntries(const KeyStoreBackend::Entries& entries,
                                        const std::map<std::string, std::string>& stored);

std::unique_ptr<KeyStoreBackend> MakeEmbeddedBackend();
std::unique_ptr<KeyStoreBackend> MakeRedisBackend(const KeyStoreSettings& settings);

// Runs `operation` on the backend in force and logs its failure as one line at `log_level`.
// Unusable host settings fail every operation, with their own text.
bool RunOnKeyStore(
    const std::function<bool(KeyStoreBackend& backend, std::string& error)>& operation,
    int log_level = kLogError);

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_BACKEND_H
