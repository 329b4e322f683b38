// The embedded key store: one SQLite file beside the domain database, shared by the processes of
// one host.
//
// A missing file reads as an empty store; the first write creates it, with its folder. A process
// that may not write the file can still read it: the mail services run under accounts of their own.
// The connection is kept, and opened again when the file was replaced or removed.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/include/db_handler.h"
#include "platform/include/files.h"
#include "platform/include/root_path.h"
#include "platform/include/sqlite.h"
#include "platform/keystore/backend.h"

namespace korvmailserver {

namespace {

constexpr char kFolder[] = "/var/packages/Postara-Server/etc";
constexpr char kFile[] = "/keystore.db";
constexpr char kSchema[] =
    "create table key_table(name TEXT NOT NULL PRIMARY KEY, tree TEXT NOT NULL,"
    " value TEXT NOT NULL);"
    "create index IDX_key_table_tree on key_table(tree, name);";
constexpr char kSelectOne[] = "SELECT value FROM key_table WHERE name = ?1";
constexpr char kSelectTree[] = "SELECT name FROM key_table WHERE tree = ?1 ORDER BY name";
constexpr char kSelectAll[] = "SELECT name, value FROM key_table";
constexpr char kReplace[] =
    "INSERT OR REPLACE INTO key_table(name, tree, value) VALUES(?1, ?2, ?3)";
constexpr char kDelete[] = "DELETE FROM key_table WHERE name = ?1";

// Writers hold the file for milliseconds; one that holds it longer is stuck.
constexpr int kBusyTimeout = 10000;

class EmbeddedBackend : public KeyStoreBackend {
 public:
  EmbeddedBackend() : folder_(UnderRoot(kFolder)), path_(folder_ + kFile) {}

  std::string Name() const override { return path_; }

  bool Get(const std::vector<std::string>& keys, std::map<std::string, std::string>& values,
           std::string& error) override {
    return Read(error, [&](sqlite3* db) {
      Statement select(db, kSelectOne);
      for (const std::string& key : keys) {
        select.Bind(1, key);
        if (!select.ForEachRow([&](const Statement& row) { values[key] = row.Text(0); })) {
          return false;
        }
        select.Reset();
      }
      return true;
    });
  }

  bool Set(const Entries& entries, std::string& error) override {
    std::vector<std::string> keys;
    keys.reserve(entries.size());
    for (const auto& entry : entries) {
      keys.push_back(entry.first);
    }
    std::map<std::string, std::string> stored;
    if (!Get(keys, stored, error)) {
      return false;
    }
    const Entries changed = ChangedEntries(entries, stored);
    return changed.empty() || Write(error, [&](sqlite3* db) {
             Statement replace(db, kReplace);
             return std::all_of(changed.begin(), changed.end(), [&](const auto& entry) {
               replace.Bind(1, entry.first);
               replace.Bind(2, KeyStoreTreeOf(entry.first));
               replace.Bind(3, entry.second);
               return replace.Run();
             });
           });
  }

  bool Remove(const std::vector<std::string>& keys, std::string& error) override {
    if (!KLIBCFileExist(path_.c_str())) {
      return true;
    }
    return Write(error, [&](sqlite3* db) {
      Statement remove(db, kDelete);
      return std::all_of(keys.begin(), keys.end(), [&](const std::string& key) {
        remove.Bind(1, key);
        return remove.Run();
      });
    });
  }

  bool List(const std::string& tree, std::vector<std::string>& keys, std::string& error) override {
    return Read(error, [&](sqlite3* db) {
      Statement select(db, kSelectTree);
      select.Bind(1, tree);
      return select.ForEachRow([&](const Statement& row) { keys.push_back(row.Text(0)); });
    });
  }

  bool All(std::map<std::string, std::string>& values, std::string& error) override {
    return Read(error, [&](sqlite3* db) {
      return Statement(db, kSelectAll).ForEachRow([&](const Statement& row) {
        values[row.Text(0)] = row.Text(1);
      });
    });
  }

  bool SetFile(const std::string& key, const std::string& path, std::string& error) override {
    return Set({{key, path}}, error);
  }

  // Takes the write lock and releases it. For a file that does not exist yet the nearest existing
  // folder above it decides.
  bool IsHealthy(std::string& error) override {
    if (KLIBCFileExist(path_.c_str())) {
      return Write(error, [](sqlite3*) { return true; });
    }
    std::string folder = folder_;
    while (!folder.empty() && !KLIBCFileExist(folder.c_str())) {
      folder.erase(folder.rfind('/'));
    }
    if (eaccess(folder.empty() ? "/" : folder.c_str(), W_OK | X_OK) != 0) {
      error = "not writable: " + folder;
      return false;
    }
    return true;
  }

 private:
  // Opens the file, or leaves the connection null when it is missing and nothing is to be written.
  bool Open(bool write, std::string& error) {
    struct stat status = {};
    const bool present = stat(path_.c_str(), &status) == 0;
    const bool same = present && status.st_ino == inode_ && status.st_dev == device_;
    if (same && (writer_ || (reader_.Get() != nullptr && !write))) {
      return true;
    }
    Close();
    inode_ = status.st_ino;
    device_ = status.st_dev;
    if (write || (present && eaccess(path_.c_str(), W_OK) == 0)) {
      return OpenWriter(error);
    }
    return !present || OpenReader(error);
  }

  void Close() {
    writer_.reset();
    reader_.Close();
  }

  sqlite3* Database() const { return writer_ ? writer_->getDB() : reader_.Get(); }

  bool OpenReader(std::string& error) {
    if (reader_.Open(path_, Connection::Mode::kRead, kBusyTimeout) == SQLITE_OK) {
      return true;
    }
    error = reader_.Error();
    return false;
  }

  bool MakeFolder(std::string& error) {
    if (KLIBCFileExist(folder_.c_str())) {
      return true;
    }
    const FolderResult made = MakeServiceFolder(folder_, 0755);
    if (made == FolderResult::kNoAccount) {
      error = std::string("no account ") + kServiceAccount;
    } else if (made == FolderResult::kFailed) {
      error = std::string("cannot make its folder: ") + strerror(errno);
    }
    return made == FolderResult::kDone;
  }

  // A failed connect has its own log line.
  bool OpenWriter(std::string& error) {
    if (!MakeFolder(error)) {
      return false;
    }
    auto writer = std::make_unique<DBHandler>(path_, kSchema);
    writer->setBusyTimeout(kBusyTimeout);
    struct stat status = {};
    if (writer->connect() != 0 || stat(path_.c_str(), &status) != 0) {
      return false;
    }
    if (sqlite3_db_readonly(writer->getDB(), "main") == 1) {
      error = "the file is read-only";
      return false;
    }
    inode_ = status.st_ino;
    device_ = status.st_dev;
    writer_ = std::move(writer);
    return true;
  }

  // Runs `body` in one read transaction: what it reads is of one moment.
  template <typename Body>
  bool Read(std::string& error, const Body& body) {
    return Open(false, error) &&
           (Database() == nullptr || Run(Transaction::Kind::kRead, error, body));
  }

  template <typename Body>
  bool Write(std::string& error, const Body& body) {
    return Open(true, error) && Run(Transaction::Kind::kWrite, error, body);
  }

  template <typename Body>
  bool Run(Transaction::Kind kind, std::string& error, const Body& body) {
    {
      Transaction transaction(Database(), kind);
      if (transaction.Begun() == SQLITE_OK && body(Database()) &&
          transaction.Commit() == SQLITE_OK) {
        return true;
      }
      error = sqlite3_errmsg(Database());
    }
    // What is wrong with the file may be mended by the next call; a fresh connection sees it.
    Close();
    return false;
  }

  const std::string folder_;
  const std::string path_;
  std::unique_ptr<DBHandler> writer_;
  Connection reader_;
  ino_t inode_ = 0;
  dev_t device_ = 0;
};

}  // namespace

std::unique_ptr<KeyStoreBackend> MakeEmbeddedBackend() {
  return std::make_unique<EmbeddedBackend>();
}

}  // namespace korvmailserver
