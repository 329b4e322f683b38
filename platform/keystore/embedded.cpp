// The embedded key store: one SQLite file beside the domain database, shared by the processes of
// one host.
//
// A missing file reads as an empty store; the first write creates it, with its folder. Who may not
// write the file can still read it: the mail services run under accounts of their own. The
// connection is kept, and opened again when the file was replaced or removed.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/include/db_handler.h"
#include "platform/include/files.h"
#include "platform/include/root_path.h"
#include "platform/keystore/backend.h"
#include "platform/keystore/statement.h"

namespace korvmailserver {

namespace {

const char kFolder[] = "/var/packages/Postara-Server/etc";
const char kFile[] = "/keystore.db";
const char kServiceAccount[] = "Postara-Server";
const char kSchema[] =
    "create table key_table(name TEXT NOT NULL PRIMARY KEY, tree TEXT NOT NULL,"
    " value TEXT NOT NULL);"
    "create index IDX_key_table_tree on key_table(tree, name);";
const char kSelectOne[] = "SELECT value FROM key_table WHERE name = ?1";
const char kSelectTree[] = "SELECT name FROM key_table WHERE tree = ?1 ORDER BY name";
const char kSelectAll[] = "SELECT name, value FROM key_table";
const char kReplace[] = "INSERT OR REPLACE INTO key_table(name, tree, value) VALUES(?1, ?2, ?3)";
const char kDelete[] = "DELETE FROM key_table WHERE name = ?1";

// Writers hold the file for milliseconds; who waits longer meets a stuck process.
constexpr int kBusyTimeout = 10000;

class EmbeddedBackend : public KeyStoreBackend {
 public:
  EmbeddedBackend() : folder_(UnderRoot(kFolder)), path_(folder_ + kFile) {}

  std::string Name() const override { return path_; }

  bool Get(const std::vector<std::string>& keys, std::map<std::string, std::string>& values,
           std::string& error) override {
    return Read(error, [&](sqlite3* db) {
      Statement select(db, kSelectOne);
      int result = SQLITE_DONE;
      for (const std::string& key : keys) {
        select.Bind(1, key);
        result = select.Step();
        if (result == SQLITE_ROW) {
          values[key] = select.Text(0);
        } else if (result != SQLITE_DONE) {
          return result;
        }
        select.Reset();
      }
      return SQLITE_DONE;
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
             for (const auto& [key, value] : changed) {
               const std::string tree = KeyStoreTreeOf(key);
               replace.Bind(1, key);
               replace.Bind(2, tree);
               replace.Bind(3, value);
               const int result = replace.Step();
               replace.Reset();
               if (result != SQLITE_DONE) {
                 return result;
               }
             }
             return SQLITE_DONE;
           });
  }

  bool Remove(const std::vector<std::string>& keys, std::string& error) override {
    if (!KLIBCFileExist(path_.c_str())) {
      return true;
    }
    return Write(error, [&](sqlite3* db) {
      Statement remove(db, kDelete);
      int result = SQLITE_DONE;
      for (size_t i = 0; i < keys.size() && result == SQLITE_DONE; ++i) {
        remove.Bind(1, keys[i]);
        result = remove.Step();
        remove.Reset();
      }
      return result;
    });
  }

  bool List(const std::string& tree, std::vector<std::string>& keys, std::string& error) override {
    return Read(error, [&](sqlite3* db) {
      Statement select(db, kSelectTree);
      select.Bind(1, tree);
      int result = SQLITE_ROW;
      while ((result = select.Step()) == SQLITE_ROW) {
        keys.push_back(select.Text(0));
      }
      return result;
    });
  }

  bool All(std::map<std::string, std::string>& values, std::string& error) override {
    return Read(error, [&](sqlite3* db) {
      Statement select(db, kSelectAll);
      int result = SQLITE_ROW;
      while ((result = select.Step()) == SQLITE_ROW) {
        values[select.Text(0)] = select.Text(1);
      }
      return result;
    });
  }

  bool SetFile(const std::string& key, const std::string& path, std::string& error) override {
    return Set({{key, path}}, error);
  }

  // Takes the write lock and lets it go. A file that is not there yet is judged by the nearest
  // folder above it that is.
  bool IsHealthy(std::string& error) override {
    if (KLIBCFileExist(path_.c_str())) {
      return Write(error, [](sqlite3*) { return SQLITE_DONE; });
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
    if (same && (writer_ || (reader_ && !write))) {
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
    reader_.reset();
  }

  sqlite3* Connection() const { return writer_ ? writer_->getDB() : reader_.get(); }

  bool OpenReader(std::string& error) {
    sqlite3* db = nullptr;
    const int result = sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    reader_.reset(db);
    if (result != SQLITE_OK) {
      error = sqlite3_errstr(result);
      Close();
      return false;
    }
    sqlite3_busy_timeout(db, kBusyTimeout);
    return true;
  }

  bool MakeFolder(std::string& error) {
    uid_t uid = 0;
    gid_t gid = 0;
    if (KLIBCFileExist(folder_.c_str())) {
      return true;
    }
    if (mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
      error = std::string("no account ") + kServiceAccount;
      return false;
    }
    if (KORVFSMkdirP(folder_.c_str(), uid, gid, 0755) < 0) {
      error = std::string("cannot make its folder: ") + strerror(errno);
      return false;
    }
    return true;
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
    inode_ = status.st_ino;
    device_ = status.st_dev;
    writer_ = std::move(writer);
    return true;
  }

  // Runs `body` in one read transaction: what it reads is of one moment.
  template <typename Body>
  bool Read(std::string& error, const Body& body) {
    if (!Open(false, error)) {
      return false;
    }
    return Connection() == nullptr || Transaction("BEGIN", error, body);
  }

  template <typename Body>
  bool Write(std::string& error, const Body& body) {
    return Open(true, error) && Transaction("BEGIN IMMEDIATE", error, body);
  }

  template <typename Body>
  bool Transaction(const char* begin, std::string& error, const Body& body) {
    sqlite3* db = Connection();
    int result = sqlite3_exec(db, begin, nullptr, nullptr, nullptr);
    if (result == SQLITE_OK) {
      result = body(db);
    }
    if (result == SQLITE_DONE) {
      result = sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    }
    if (result == SQLITE_OK) {
      return true;
    }
    error = sqlite3_errmsg(db);
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    // What is wrong with the file may be mended by the next call; a fresh connection sees it.
    Close();
    return false;
  }

  const std::string folder_;
  const std::string path_;
  std::unique_ptr<DBHandler> writer_;
  std::unique_ptr<sqlite3, int (*)(sqlite3*)> reader_{nullptr, sqlite3_close};
  ino_t inode_ = 0;
  dev_t device_ = 0;
};

}  // namespace

std::unique_ptr<KeyStoreBackend> MakeEmbeddedBackend() {
  return std::make_unique<EmbeddedBackend>();
}

}  // namespace korvmailserver
