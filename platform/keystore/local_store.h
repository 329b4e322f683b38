// The embedded key store: one SQLite file beside the domain database, shared by the processes of
// one host.
//
// A missing file reads as an empty store; the first write creates it, with its folder. A process
// that may not write the file can still read it: the mail services run under accounts of their own.
// The connection is kept, and opened again when the file was replaced or removed. Within a
// KeyStoreView all keys are read at once.
#ifndef PLATFORM_KEYSTORE_LOCAL_STORE_H
#define PLATFORM_KEYSTORE_LOCAL_STORE_H

#include <sys/stat.h>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/include/database_numbers.h"
#include "platform/include/db_handler.h"
#include "platform/include/sqlite.h"
#include "platform/keystore/backend.h"

namespace korvmailserver {

// What is known of a published file of this machine: what it was when it was read or pulled last.
struct KnownFile {
  std::string path;   // with the root prefix
  std::string stamp;  // of the file as it was then; empty: read it again
  long long size = 0;
  std::string digest;
  std::string pieces;  // 32 bytes of digest each

  bool operator==(const KnownFile& other) const {
    return path == other.path && stamp == other.stamp && size == other.size &&
           digest == other.digest && pieces == other.pieces;
  }
};
using KnownFiles = std::map<std::string, KnownFile>;  // by key

class LocalStore : public KeyStoreBackend {
 public:
  // Names and values, beside the keys.
  using Memory = std::map<std::string, std::string>;

  struct Content {
    std::map<std::string, std::string> keys;
    Memory memory;
    KnownFiles files;
  };

  // Made together or not at all.
  struct Change {
    bool drop_other_keys = false;  // no key stays but those of `entries`
    Entries entries;
    std::vector<std::string> removed_keys;
    Memory memory;  // to be set; what it does not name stays
    KnownFiles files;
    std::vector<std::string> removed_files;
  };

  LocalStore();

  std::string Name() const override { return path_; }
  bool Get(const std::vector<std::string>& keys, std::map<std::string, std::string>& values,
           std::string& error) override;
  bool Write(const Entries& entries, const std::vector<std::string>& removed_keys,
             std::string& error) override;
  bool List(const std::string& tree, const KeyUse& use, std::string& error) override;
  bool All(std::map<std::string, std::string>& values, std::string& error) override;
  bool SetFile(const std::string& key, const std::string& path, std::string& error) override;
  // Takes the write lock and releases it. For a file that does not exist yet the nearest existing
  // folder above it decides.
  bool IsHealthy(std::string& error) override;

  bool ReadMemory(Memory& memory, std::string& error);
  // Everything, of one moment, in the place of what `content` had.
  bool ReadContent(Content& content, std::string& error);
  bool Apply(const Change& change, std::string& error);

 private:
  // All keys of one moment.
  struct Image {
    struct Key {
      std::string value;
      std::string tree;
    };
    std::map<std::string, Key> keys;
    std::map<std::string, std::set<std::string>> keys_by_tree;
    sqlite3_int64 version = 0;  // what the connection calls the state of the file
    unsigned long moment = 0;   // of the view that it was compared for last
    // Of the file at that moment; none after a change, which others may follow with theirs.
    std::optional<DatabaseNumbers> numbers;

    void Set(const std::string& key, const std::string& value, const std::string& tree);
    void Remove(const std::string& key);
    // What the change of this connection makes of it.
    void Follow(const Change& change);
    // Adds to the change those of the entries that differ, and those of the keys that are stored.
    void Compare(const Entries& entries, const std::vector<std::string>& removed_keys,
                 Change& change) const;
    // Adds those of `names` that are stored.
    void Get(const std::vector<std::string>& names,
             std::map<std::string, std::string>& values) const;
  };

  bool _LookAtView(const Image*& image, std::string& error);
  bool _CompareWithFile(unsigned long moment, std::string& error);
  bool _LoadImage(sqlite3* db);
  bool _Compare(const Entries& entries, const std::vector<std::string>& removed_keys,
                Change& change, std::string& error);
  void _FollowFile(sqlite3* db);
  bool _IsImageOfFile(sqlite3* db);
  bool _IsImageCurrent() const;
  bool _SelectOnes(sqlite3* db, const std::vector<std::string>& keys,
                   std::map<std::string, std::string>& values);
  bool _Open(bool write, std::string& error);
  void _Close();
  bool _OpenReader(std::string& error);
  bool _OpenWriter(std::string& error);
  bool _MakeFolder(std::string& error);
  sqlite3* _Database() const { return writer_ ? writer_->getDB() : reader_.Get(); }
  template <typename Body>
  bool _Read(std::string& error, const Body& body);
  template <typename Body>
  bool _Write(std::string& error, const Body& body);
  template <typename Body>
  bool _Run(Transaction::Kind kind, std::string& error, const Body& body);

  const std::string folder_;
  const std::string path_;
  std::unique_ptr<DBHandler> writer_;
  Connection reader_;
  CompiledStatements compiled_;
  std::optional<Image> image_;
  ino_t inode_ = 0;
  dev_t device_ = 0;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_LOCAL_STORE_H
