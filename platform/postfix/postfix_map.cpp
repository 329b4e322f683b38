// Keys and values end with a zero byte, as postmap writes them.
#include "platform/include/postfix_map.h"

#include <sys/stat.h>
#include <unicase.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/include/files.h"
#include "platform/include/new_file.h"
#include "platform/include/text.h"
#include "platform/postfix/lmdb.h"

namespace korvmailserver {

namespace {

constexpr size_t kSmallest = size_t{16} << 20U;
constexpr size_t kBytesPerEntry = 64;  // beside key and value
constexpr size_t kLongestKey = 510;
constexpr mode_t kMode = 0644;
constexpr mode_t kFolderMode = 0755;

MDB_val ValueOf(const std::string& text) {
  return {text.size() + 1, const_cast<char*>(text.c_str())};
}

// Without the byte that ends it.
std::string TextOf(const MDB_val& value) {
  const auto* const bytes = static_cast<const char*>(value.mv_data);
  const bool is_ended = value.mv_size > 0 && bytes[value.mv_size - 1] == '\0';
  return {bytes, value.mv_size - (is_ended ? 1 : 0)};
}

size_t RoomFor(const MapEntries& entries, size_t used) {
  size_t bytes = used;
  for (const auto& [key, value] : entries) {
    bytes += key.size() + value.size() + kBytesPerEntry;
  }
  size_t room = kSmallest;
  while (room < 4 * bytes) {  // pages of the state before and of the new one, half full
    room *= 2;
  }
  return room;
}

std::string Explain(int result, const std::string& file) {
  return file + ": " + mdb_strerror(result);
}

size_t FileSize(const std::string& file) {
  struct stat info {};
  return stat(file.c_str(), &info) == 0 ? static_cast<size_t>(info.st_size) : 0;
}

// The file is known by its inode, its content by the number of the last transaction.
std::string StateOf(const std::string& file, const LmdbFile& map) {
  struct stat info {};
  return stat(file.c_str(), &info) != 0
             ? ""
             : std::to_string(info.st_ino) + "." + std::to_string(map.LastTransaction());
}

int Put(const LmdbFile& map, const std::string& key, const std::string& value) {
  MDB_val stored_key = ValueOf(key);
  MDB_val stored_value = ValueOf(value);
  return mdb_put(map.Transaction(), map.Table(), &stored_key, &stored_value, 0);
}

int Remove(const LmdbFile& map, MDB_val key) {
  const int result = mdb_del(map.Transaction(), map.Table(), &key, nullptr);
  return result == MDB_NOTFOUND ? MDB_SUCCESS : result;
}

// Sets or removes one entry where that changes something.
int Bring(const LmdbFile& map, const std::string& key, const std::string& value, bool& is_changed) {
  MDB_val stored_key = ValueOf(key);
  MDB_val stored = {};
  const int found = mdb_get(map.Transaction(), map.Table(), &stored_key, &stored);
  if (found != MDB_SUCCESS && found != MDB_NOTFOUND) {
    return found;
  }
  const bool is_there = found == MDB_SUCCESS;
  if (value.empty() ? !is_there : is_there && TextOf(stored) == value) {
    return MDB_SUCCESS;
  }
  is_changed = true;
  return value.empty() ? Remove(map, stored_key) : Put(map, key, value);
}

// By key.
template <typename Use>
int ForEach(const LmdbFile& map, const Use& use) {
  MDB_cursor* opened = nullptr;
  int result = mdb_cursor_open(map.Transaction(), map.Table(), &opened);
  if (result != MDB_SUCCESS) {
    return result;
  }
  const std::unique_ptr<MDB_cursor, void (*)(MDB_cursor*)> cursor(opened, mdb_cursor_close);
  MDB_val key = {};
  MDB_val value = {};
  while ((result = mdb_cursor_get(opened, &key, &value, MDB_NEXT)) == MDB_SUCCESS) {
    use(key, value);
  }
  return result == MDB_NOTFOUND ? MDB_SUCCESS : result;
}

// The entries of the map and those wanted, side by side: what is to be set and removed.
int Compare(const LmdbFile& map, const MapEntries& entries,
            std::vector<MapEntries::const_iterator>& added, std::vector<std::string>& removed) {
  auto next = entries.begin();
  const int result = ForEach(map, [&](const MDB_val& key, const MDB_val& value) {
    const std::string stored = TextOf(key);
    for (; next != entries.end() && next->first < stored; ++next) {
      added.push_back(next);
    }
    const bool is_wanted = next != entries.end() && next->first == stored;
    const bool is_ended = key.mv_size != stored.size();
    if (!is_wanted || !is_ended) {
      removed.emplace_back(static_cast<const char*>(key.mv_data), key.mv_size);
    }
    if (is_wanted) {
      if (!is_ended || TextOf(value) != next->second) {
        added.push_back(next);
      }
      ++next;
    }
  });
  for (; next != entries.end(); ++next) {
    added.push_back(next);
  }
  return result;
}

int MakeSame(const LmdbFile& map, const MapEntries& entries, bool& is_changed) {
  std::vector<MapEntries::const_iterator> added;
  std::vector<std::string> removed;
  int result = Compare(map, entries, added, removed);
  is_changed = !added.empty() || !removed.empty();
  for (auto key = removed.begin(); result == MDB_SUCCESS && key != removed.end(); ++key) {
    result = Remove(map, {key->size(), key->data()});
  }
  for (auto entry = added.begin(); result == MDB_SUCCESS && entry != added.end(); ++entry) {
    result = Put(map, (*entry)->first, (*entry)->second);
  }
  return result;
}

// One transaction in which `work(map, is_changed)` runs; nothing is written when it changes
// nothing.
template <typename Work>
int Write(const std::string& file, size_t room, const Work& work, std::string& state) {
  LmdbFile map;
  bool is_changed = false;
  int result = map.Open(file, LmdbFile::Mode::kWrite, room);
  if (result == MDB_SUCCESS) {
    result = map.Begin();
  }
  if (result == MDB_SUCCESS) {
    result = work(map, is_changed);
  }
  if (result == MDB_SUCCESS && is_changed) {
    result = map.Commit();
  }
  if (result == MDB_SUCCESS) {
    state = StateOf(file, map);
  }
  return result;
}

}  // namespace

std::string FoldMapKey(const std::string& key) {
  std::string lower = ToLowerAscii(key);
  if (!HasNonAscii(key) || !IsValidUtf8(key)) {
    return lower;
  }
  size_t size = 0;
  const std::unique_ptr<uint8_t, void (*)(void*)> folded(
      u8_casefold(reinterpret_cast<const uint8_t*>(lower.data()), lower.size(), nullptr, nullptr,
                  nullptr, &size),
      std::free);
  return folded == nullptr ? lower : std::string(reinterpret_cast<const char*>(folded.get()), size);
}

bool PostfixMap::GetState(std::string& state, std::string& error) const {
  state.clear();
  if (!KLIBCFileExist(file_.c_str())) {
    return true;
  }
  LmdbFile map;
  const int result = map.Open(file_, LmdbFile::Mode::kRead, kSmallest);
  if (result != MDB_SUCCESS) {
    error = Explain(result, file_);
    return false;
  }
  state = StateOf(file_, map);
  return true;
}

bool PostfixMap::Get(const std::string& key, bool& found, std::string& value,
                     std::string& error) const {
  LmdbFile map;
  const std::string folded = FoldMapKey(key);
  MDB_val stored_key = ValueOf(folded);
  MDB_val stored = {};
  int result = map.Open(file_, LmdbFile::Mode::kRead, kSmallest);
  if (result == MDB_SUCCESS) {
    result = map.Begin();
  }
  if (result == MDB_SUCCESS) {
    result = mdb_get(map.Transaction(), map.Table(), &stored_key, &stored);
  }
  found = result == MDB_SUCCESS;
  value = found ? TextOf(stored) : "";
  if (!found && result != MDB_NOTFOUND) {
    error = Explain(result, file_);
    return false;
  }
  return true;
}

bool PostfixMap::GetAll(MapEntries& entries, std::string& error) const {
  entries.clear();
  if (!KLIBCFileExist(file_.c_str())) {
    return true;
  }
  LmdbFile map;
  int result = map.Open(file_, LmdbFile::Mode::kRead, kSmallest);
  if (result == MDB_SUCCESS) {
    result = map.Begin();
  }
  if (result == MDB_SUCCESS) {
    result = ForEach(map, [&entries](const MDB_val& key, const MDB_val& value) {
      entries.emplace_hint(entries.end(), TextOf(key), TextOf(value));
    });
  }
  if (result != MDB_SUCCESS) {
    error = Explain(result, file_);
  }
  return result == MDB_SUCCESS;
}

bool PostfixMap::Change(const MapEntries& entries, std::string& state, std::string& error) const {
  const auto bring_all = [&entries](const LmdbFile& map, bool& is_changed) {
    for (const auto& [key, value] : entries) {
      const int result =
          key.size() > kLongestKey ? MDB_SUCCESS : Bring(map, key, value, is_changed);
      if (result != MDB_SUCCESS) {
        return result;
      }
    }
    return MDB_SUCCESS;
  };
  const int result = !KLIBCFileExist(file_.c_str())
                         ? ENOENT
                         : Write(file_, RoomFor(entries, FileSize(file_)), bring_all, state);
  if (result != MDB_SUCCESS) {
    error = Explain(result, file_);
  }
  return result == MDB_SUCCESS;
}

bool PostfixMap::Replace(const MapEntries& entries, std::string& state, std::string& error) const {
  struct stat info {};
  const bool is_file = lstat(file_.c_str(), &info) == 0 && S_ISREG(info.st_mode);
  std::string why;
  return (is_file && _Fill(file_, entries, state, why)) || _MakeAnew(entries, state, error);
}

bool PostfixMap::_Fill(const std::string& file, const MapEntries& entries, std::string& state,
                       std::string& error) const {
  const auto make_same = [&entries](const LmdbFile& map, bool& is_changed) {
    return MakeSame(map, entries, is_changed);
  };
  const int result = Write(file, RoomFor(entries, FileSize(file)), make_same, state);
  if (result != MDB_SUCCESS) {
    error = Explain(result, file_);
  }
  return result == MDB_SUCCESS;
}

bool PostfixMap::_MakeAnew(const MapEntries& entries, std::string& state,
                           std::string& error) const {
  const std::string folder = file_.substr(0, file_.rfind('/'));
  uid_t uid = 0;
  gid_t gid = 0;
  if (mailUGidGet(kServiceAccount, &uid, &gid) < 0) {
    error = file_ + ": there is no account " + kServiceAccount;
    return false;
  }
  NewFile fresh(file_);
  if ((!KLIBCFileExist(folder.c_str()) &&
       MakeServiceFolder(folder, kFolderMode) != FolderResult::kDone) ||
      !fresh.Open() || !fresh.SetOwner(uid, gid)) {
    error = file_ + ": " + strerror(errno);
    return false;
  }
  if (!_Fill(fresh.Beside(), entries, state, error)) {
    return false;
  }
  if (!fresh.Replace(kMode)) {
    error = file_ + ": " + strerror(errno);
    return false;
  }
  return GetState(state, error);
}

}  // namespace korvmailserver
