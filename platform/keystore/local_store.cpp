// Keys in "key_table"; what this machine remembers of a shared store in tables of their own, which
// appear with their first row.
#include "platform/keystore/local_store.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "platform/include/files.h"
#include "platform/include/key_store.h"
#include "platform/include/root_path.h"

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
constexpr char kSelectImage[] =
    "SELECT name, value, tree, typeof(name) = 'text' AND typeof(tree) = 'text' FROM key_table "
    "ORDER BY name";
constexpr char kSelectVersion[] = "PRAGMA data_version";
constexpr char kReplace[] =
    "INSERT OR REPLACE INTO key_table(name, tree, value) VALUES(?1, ?2, ?3)";
constexpr char kDeleteAll[] = "DELETE FROM key_table";
constexpr char kDelete[] = "DELETE FROM key_table WHERE name = ?1";

constexpr char kNodeSchema[] =
    "CREATE TABLE IF NOT EXISTS node_table(name TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS node_file_table(key TEXT NOT NULL PRIMARY KEY, path TEXT NOT NULL,"
    " stamp TEXT NOT NULL, size INTEGER NOT NULL, digest TEXT NOT NULL, pieces BLOB NOT NULL)";
constexpr char kHasNodeTables[] =
    "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = 'node_file_table'";
constexpr char kSelectState[] = "SELECT name, value FROM node_table";
constexpr char kReplaceState[] = "INSERT OR REPLACE INTO node_table(name, value) VALUES(?1, ?2)";
constexpr char kSelectFiles[] =
    "SELECT key, path, stamp, size, digest, pieces FROM node_file_table";
constexpr char kReplaceFile[] =
    "INSERT OR REPLACE INTO node_file_table(key, path, stamp, size, digest, pieces)"
    " VALUES(?1, ?2, ?3, ?4, ?5, ?6)";
constexpr char kDeleteFile[] = "DELETE FROM node_file_table WHERE key = ?1";

// Writers hold the file for milliseconds; one that holds it longer is stuck.
constexpr int kBusyTimeout = 10000;

bool HasNodeTables(sqlite3* db) {
  bool has = false;
  Statement(db, kHasNodeTables).ForEachRow([&](const Statement& /*row*/) { has = true; });
  return has;
}

bool SelectKeys(sqlite3* db, std::map<std::string, std::string>& values) {
  return Statement(db, kSelectAll).ForEachRow([&](const Statement& row) {
    values[row.Text(0)] = row.Text(1);
  });
}

bool SelectMemory(sqlite3* db, LocalStore::Memory& memory) {
  return Statement(db, kSelectState).ForEachRow([&](const Statement& row) {
    memory[row.Text(0)] = row.Text(1);
  });
}

bool SelectFiles(sqlite3* db, KnownFiles& files) {
  return Statement(db, kSelectFiles).ForEachRow([&](const Statement& row) {
    files[row.Text(0)] = {row.Text(1), row.Text(2), row.Int64(3), row.Text(4), row.Text(5)};
  });
}

bool ReadVersion(Statement& select, sqlite3_int64& version) {
  const bool is_read = select.Step() == SQLITE_ROW;
  version = select.Int64(0);
  select.Reset();
  return is_read;
}

bool WriteKeys(sqlite3* db, CompiledStatements& compiled, const LocalStore::Change& change) {
  if (change.drop_other_keys && !Statement(db, kDeleteAll).Run()) {
    return false;
  }
  Statement& replace = compiled.Get(db, kReplace);
  Statement& remove = compiled.Get(db, kDelete);
  return std::all_of(change.entries.begin(), change.entries.end(),
                     [&](const auto& entry) {
                       replace.Bind(1, entry.first);
                       replace.Bind(2, KeyStoreTreeOf(entry.first));
                       replace.Bind(3, entry.second);
                       return replace.Run();
                     }) &&
         std::all_of(change.removed_keys.begin(), change.removed_keys.end(),
                     [&](const std::string& key) {
                       remove.Bind(1, key);
                       return remove.Run();
                     });
}

bool WriteMemory(sqlite3* db, const LocalStore::Change& change) {
  if (change.memory.empty() && change.files.empty() && change.removed_files.empty()) {
    return true;
  }
  if (sqlite3_exec(db, kNodeSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
    return false;
  }
  Statement remember(db, kReplaceState);
  Statement replace(db, kReplaceFile);
  Statement remove(db, kDeleteFile);
  return std::all_of(change.memory.begin(), change.memory.end(),
                     [&](const auto& entry) {
                       remember.Bind(1, entry.first);
                       remember.Bind(2, entry.second);
                       return remember.Run();
                     }) &&
         std::all_of(change.files.begin(), change.files.end(),
                     [&](const auto& entry) {
                       const auto& [key, file] = entry;
                       replace.Bind(1, key);
                       replace.Bind(2, file.path);
                       replace.Bind(3, file.stamp);
                       replace.Bind(4, file.size);
                       replace.Bind(5, file.digest);
                       replace.Bind(6, file.pieces);
                       return replace.Run();
                     }) &&
         std::all_of(change.removed_files.begin(), change.removed_files.end(),
                     [&](const std::string& key) {
                       remove.Bind(1, key);
                       return remove.Run();
                     });
}

}  // namespace

LocalStore::LocalStore() : folder_(UnderRoot(kFolder)), path_(folder_ + kFile) {}

bool LocalStore::Get(const std::vector<std::string>& keys,
                     std::map<std::string, std::string>& values, std::string& error) {
  const Image* image = nullptr;
  if (!_LookAtView(image, error)) {
    return false;
  }
  if (image != nullptr) {
    image->Get(keys, values);
    return true;
  }
  return _Read(error, [&](sqlite3* db) { return _SelectOnes(db, keys, values); });
}

bool LocalStore::_SelectOnes(sqlite3* db, const std::vector<std::string>& keys,
                             std::map<std::string, std::string>& values) {
  Statement& select = compiled_.Get(db, kSelectOne);
  for (const std::string& key : keys) {
    select.Bind(1, key);
    if (!select.ForEachRow([&](const Statement& row) { values[key] = row.Text(0); })) {
      return false;
    }
    select.Reset();
  }
  return true;
}

bool LocalStore::Write(const Entries& entries, const std::vector<std::string>& removed_keys,
                       std::string& error) {
  Change change;
  return _Compare(entries, removed_keys, change, error) &&
         ((change.entries.empty() && change.removed_keys.empty()) || Apply(change, error));
}

// What a change is compared with: of now, also where a view is of an earlier moment.
bool LocalStore::_Compare(const Entries& entries, const std::vector<std::string>& removed_keys,
                          Change& change, std::string& error) {
  if (!_Open(false, error)) {
    return false;
  }
  Image stored;
  if (_IsImageCurrent()) {
    image_->Compare(entries, removed_keys, change);
    return true;
  }
  if (_Database() == nullptr) {
    stored.Compare(entries, removed_keys, change);
    return true;
  }
  return _Run(Transaction::Kind::kRead, error, [&](sqlite3* db) {
    _FollowFile(db);
    if (image_) {
      image_->Compare(entries, removed_keys, change);
      return true;
    }
    std::vector<std::string> keys = removed_keys;
    for (const auto& entry : entries) {
      keys.push_back(entry.first);
    }
    std::map<std::string, std::string> values;
    if (!_SelectOnes(db, keys, values)) {
      return false;
    }
    for (const auto& [key, value] : values) {
      stored.Set(key, value, "");
    }
    stored.Compare(entries, removed_keys, change);
    return true;
  });
}

bool LocalStore::List(const std::string& tree, const KeyUse& use, std::string& error) {
  const Image* image = nullptr;
  if (!_LookAtView(image, error)) {
    return false;
  }
  if (image != nullptr) {
    const auto found = image->keys_by_tree.find(tree);
    if (found != image->keys_by_tree.end()) {
      std::for_each(found->second.begin(), found->second.end(), use);
    }
    return true;
  }
  return _Read(error, [&](sqlite3* db) {
    Statement& select = compiled_.Get(db, kSelectTree);
    select.Bind(1, tree);
    return select.ForEachRow([&](const Statement& row) { use(row.Text(0)); });
  });
}

bool LocalStore::All(std::map<std::string, std::string>& values, std::string& error) {
  return _Read(error, [&](sqlite3* db) { return SelectKeys(db, values); });
}

bool LocalStore::SetFile(const std::string& key, const std::string& path, std::string& error) {
  return Write({{key, path}}, {}, error);
}

bool LocalStore::IsHealthy(std::string& error) {
  if (KLIBCFileExist(path_.c_str())) {
    return _Write(error, [this](sqlite3* db) {
      _FollowFile(db);
      return true;
    });
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

bool LocalStore::ReadMemory(Memory& memory, std::string& error) {
  return _Read(error, [&](sqlite3* db) { return !HasNodeTables(db) || SelectMemory(db, memory); });
}

bool LocalStore::ReadContent(Content& content, std::string& error) {
  content = {};
  return _Read(error, [&](sqlite3* db) {
    return SelectKeys(db, content.keys) &&
           (!HasNodeTables(db) ||
            (SelectMemory(db, content.memory) && SelectFiles(db, content.files)));
  });
}

bool LocalStore::Apply(const Change& change, std::string& error) {
  bool is_of_file = false;
  const bool is_written = _Write(error, [&](sqlite3* db) {
    is_of_file = _IsImageOfFile(db);
    return WriteKeys(db, compiled_, change) && WriteMemory(db, change);
  });
  // The file's number tells of the commits of others alone.
  if (is_written && is_of_file && !change.drop_other_keys) {
    image_->Follow(change);
    image_->numbers.reset();
  } else {
    image_.reset();
  }
  return is_written;
}

void LocalStore::Image::Set(const std::string& key, const std::string& value,
                            const std::string& tree) {
  Remove(key);  // from the tree that somebody else gave it, too
  keys[key] = {value, tree};
  keys_by_tree[tree].insert(key);
}

void LocalStore::Image::Remove(const std::string& key) {
  const auto found = keys.find(key);
  if (found != keys.end()) {
    keys_by_tree[found->second.tree].erase(key);
    keys.erase(found);
  }
}

void LocalStore::Image::Follow(const Change& change) {
  for (const auto& [key, value] : change.entries) {
    Set(key, value, KeyStoreTreeOf(key));
  }
  for (const std::string& key : change.removed_keys) {
    Remove(key);
  }
}

void LocalStore::Image::Get(const std::vector<std::string>& names,
                            std::map<std::string, std::string>& values) const {
  for (const std::string& name : names) {
    const auto found = keys.find(name);
    if (found != keys.end()) {
      values[name] = found->second.value;
    }
  }
}

// Entries in the order of their keys, as they mostly are, are found one behind the other.
void LocalStore::Image::Compare(const Entries& entries,
                                const std::vector<std::string>& removed_keys,
                                Change& change) const {
  auto next = keys.begin();
  for (const auto& entry : entries) {
    const auto stored =
        next != keys.end() && next->first == entry.first ? next : keys.find(entry.first);
    if (stored == keys.end() || stored->second.value != entry.second) {
      change.entries.push_back(entry);
    }
    next = stored == keys.end() ? next : std::next(stored);
  }
  std::copy_if(removed_keys.begin(), removed_keys.end(), std::back_inserter(change.removed_keys),
               [this](const std::string& key) { return keys.count(key) != 0; });
}

// Without an image where there is no view, and where not all keys can be read: then each call looks
// for its own. False and `error` when the store cannot even be asked, which no second attempt
// within the same call would change.
bool LocalStore::_LookAtView(const Image*& image, std::string& error) {
  const unsigned long moment = KeyStoreView::Moment();
  const bool is_of_moment = image_ && image_->moment == moment;
  if (moment == 0 || !is_of_moment) {
    if (!_Open(false, error)) {
      return false;
    }
    if (_IsImageCurrent()) {
      image_->moment = moment == 0 ? image_->moment : moment;
      image = &*image_;
      return true;
    }
  }
  if (moment == 0) {
    return true;
  }
  if (!is_of_moment && !_CompareWithFile(moment, error)) {
    return false;
  }
  image = image_ ? &*image_ : nullptr;
  return true;
}

// False when the open store cannot be asked.
bool LocalStore::_CompareWithFile(unsigned long moment, std::string& error) {
  if (_Database() == nullptr) {
    Image nothing;
    nothing.moment = moment;
    image_ = std::move(nothing);
    return true;
  }
  bool is_asked = false;
  std::string why;
  const bool is_read = _Run(Transaction::Kind::kRead, why, [&](sqlite3* db) {
    is_asked = true;
    _FollowFile(db);
    return true;
  });
  if (!is_read) {
    image_.reset();
    error = is_asked ? error : why;
  }
  return is_read || is_asked;
}

// True without an image where a key is no text, which an image would mix with the text of its
// bytes.
bool LocalStore::_LoadImage(sqlite3* db) {
  Image image;
  bool are_texts = true;
  const auto keep = [&](const Statement& row) {
    image.Set(row.Text(0), row.Text(1), row.Text(2));
    are_texts = are_texts && row.Int(3) == 1;
  };
  image.moment = KeyStoreView::Moment();
  if (!ReadVersion(compiled_.Get(db, kSelectVersion), image.version) ||
      !compiled_.Get(db, kSelectImage).ForEachRow(keep)) {
    return false;
  }
  if (are_texts) {
    image_ = std::move(image);
  }
  return true;
}

// Within a transaction: from now on the image, if there is one, is of this moment.
void LocalStore::_FollowFile(sqlite3* db) {
  const unsigned long moment = KeyStoreView::Moment();
  if (_IsImageOfFile(db)) {
    image_->moment = moment;
  } else {
    image_.reset();
    if (moment != 0) {
      _LoadImage(db);
    }
  }
  DatabaseNumbers numbers;
  if (image_ && ReadDatabaseNumbers(db, numbers)) {
    image_->numbers = numbers;
  }
}

// Without a transaction, of an open file.
bool LocalStore::_IsImageCurrent() const {
  DatabaseNumbers now;
  return image_ && image_->numbers && ReadDatabaseNumbers(_Database(), now) &&
         now == *image_->numbers;
}

bool LocalStore::_IsImageOfFile(sqlite3* db) {
  sqlite3_int64 version = 0;
  return image_ && ReadVersion(compiled_.Get(db, kSelectVersion), version) &&
         version == image_->version;
}

// Opens the file, or leaves the connection null when it is missing and nothing is to be written.
bool LocalStore::_Open(bool write, std::string& error) {
  struct stat status = {};
  const bool present = stat(path_.c_str(), &status) == 0;
  const bool same = present && status.st_ino == inode_ && status.st_dev == device_;
  if (same && (writer_ || (reader_.Get() != nullptr && !write))) {
    return true;
  }
  _Close();
  inode_ = status.st_ino;
  device_ = status.st_dev;
  if (write || (present && eaccess(path_.c_str(), W_OK) == 0)) {
    return _OpenWriter(error);
  }
  return !present || _OpenReader(error);
}

void LocalStore::_Close() {
  image_.reset();
  compiled_.Clear();
  writer_.reset();
  reader_.Close();
}

bool LocalStore::_OpenReader(std::string& error) {
  if (reader_.Open(path_, Connection::Mode::kRead, kBusyTimeout) == SQLITE_OK) {
    return true;
  }
  error = reader_.Error();
  return false;
}

bool LocalStore::_MakeFolder(std::string& error) {
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
bool LocalStore::_OpenWriter(std::string& error) {
  if (!_MakeFolder(error)) {
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
bool LocalStore::_Read(std::string& error, const Body& body) {
  return _Open(false, error) &&
         (_Database() == nullptr || _Run(Transaction::Kind::kRead, error, body));
}

template <typename Body>
bool LocalStore::_Write(std::string& error, const Body& body) {
  return _Open(true, error) && _Run(Transaction::Kind::kWrite, error, body);
}

template <typename Body>
bool LocalStore::_Run(Transaction::Kind kind, std::string& error, const Body& body) {
  {
    Transaction transaction(_Database(), kind);
    if (transaction.Begun() == SQLITE_OK && body(_Database()) &&
        transaction.Commit() == SQLITE_OK) {
      return true;
    }
    error = sqlite3_errmsg(_Database());
  }
  // What is wrong with the file may be mended by the next call; a fresh connection sees it.
  _Close();
  return false;
}

}  // namespace korvmailserver
