// The index has a header and four parts: names and ids of passwd, names and ids of group. A part is
// a table of buckets and then all entries, those of one bucket together. It is read on the machine
// that wrote it, so numbers stand in it as they are in memory.
#include "platform/account/account_index.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/account/name_hash.h"
#include "platform/include/files.h"
#include "platform/include/new_file.h"
#include "platform/include/root_path.h"

namespace korvmailserver::account {

namespace {

// Another number for another form of the file, or for a line that is another thing than before.
constexpr char kMagic[8] = {'a', 'c', 'c', 'o', 'u', 'n', 't', '1'};
constexpr mode_t kMode = 0644;
constexpr size_t kFewestEntries = 1000;  // below it the proof costs next to nothing
constexpr double kYoungestSeconds = 2;

struct Header {
  char magic[8];
  char states[2][248];
  uint64_t counts[4];
};

struct Entry {
  uint32_t key;
  uint32_t offset;
};

std::string Path() {
  return UnderRoot("/var/run/postara_server/accounts");
}

// Eight entries in a bucket, on average.
uint64_t BucketsFor(uint64_t count) {
  uint64_t buckets = 1;
  while (buckets * 8 < count) {
    buckets *= 2;
  }
  return buckets;
}

uint64_t BucketOf(uint64_t key, uint64_t buckets) {
  return Mix(key, 0) >> 20 & (buckets - 1);
}

uint64_t TableSize(uint64_t count) {
  return (BucketsFor(count) + 1) * sizeof(uint32_t);
}

uint64_t PartSize(uint64_t count) {
  return TableSize(count) + count * sizeof(Entry);
}

template <class Key>
void AppendPart(std::string& bytes, const std::vector<Key>& keys,
                const std::vector<uint32_t>& offsets) {
  const uint64_t buckets = BucketsFor(keys.size());
  std::vector<uint32_t> begins(buckets + 1);
  for (const Key key : keys) {
    begins[BucketOf(key, buckets) + 1]++;
  }
  for (uint64_t i = 0; i < buckets; i++) {
    begins[i + 1] += begins[i];
  }
  bytes.append(reinterpret_cast<const char*>(begins.data()), begins.size() * sizeof(begins[0]));
  std::vector<Entry> entries(keys.size());
  for (size_t i = 0; i < keys.size(); i++) {
    entries[begins[BucketOf(keys[i], buckets)]++] = {static_cast<uint32_t>(keys[i]), offsets[i]};
  }
  bytes.append(reinterpret_cast<const char*>(entries.data()), entries.size() * sizeof(Entry));
}

// False when the state cannot be told, or might be told of another content.
bool PutState(const FileStamp& stamp, char (&state)[248]) {
  const std::string text = stamp.Text();
  std::memset(state, 0, sizeof(state));
  text.copy(state, sizeof(state) - 1);
  return !text.empty() && text.size() < sizeof(state);
}

bool IsServiceAccount(uid_t uid) {
  uid_t service = 0;
  gid_t group = 0;
  return mailUGidGet(kServiceAccount, &service, &group) == 0 && uid == service;
}

bool IsOurs(const struct stat& info) {
  return (info.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
         (info.st_uid == 0 || info.st_uid == geteuid() || IsServiceAccount(info.st_uid));
}

bool IsFolderOurs() {
  const std::string path = Path();
  struct stat info = {};
  return stat(path.substr(0, path.rfind('/')).c_str(), &info) == 0 && IsOurs(info);
}

}  // namespace

bool AccountIndex::Open(const FileStamp& passwd, const FileStamp& group) {
  struct stat info = {};
  Header wanted = {};
  Header header = {};
  if (!PutState(passwd, wanted.states[0]) || !PutState(group, wanted.states[1]) ||
      !IsFolderOurs() || !file_.Open(Path(), info, O_NOFOLLOW)) {
    return false;
  }
  uint64_t size = sizeof(header);
  if (IsOurs(info) && file_.Read(&header, sizeof(header), 0) == sizeof(header) &&
      std::memcmp(header.magic, kMagic, sizeof(kMagic)) == 0 &&
      std::memcmp(header.states, wanted.states, sizeof(wanted.states)) == 0) {
    for (size_t i = 0; i < counts_.size(); i++) {
      counts_[i] = std::min<uint64_t>(header.counts[i], UINT32_MAX);
      size += PartSize(counts_[i]);
    }
  }
  if (size == sizeof(header) || size != static_cast<uint64_t>(info.st_size)) {
    file_.Close();
  }
  return IsOpen();
}

bool AccountIndex::Find(Part part, uint64_t key, std::vector<uint32_t>& offsets) const {
  size_t at = sizeof(Header);
  for (int before = 0; before < part; before++) {
    at += PartSize(counts_[before]);
  }
  const uint64_t count = counts_[part];
  uint32_t range[2] = {};
  offsets.clear();
  if (file_.Read(range, sizeof(range), at + BucketOf(key, BucketsFor(count)) * sizeof(range[0])) !=
          sizeof(range) ||
      range[0] > range[1] || range[1] > count) {
    return false;
  }
  std::vector<Entry> entries(range[1] - range[0]);
  const auto size = static_cast<ssize_t>(entries.size() * sizeof(Entry));
  if (file_.Read(entries.data(), entries.size() * sizeof(Entry),
                 at + TableSize(count) + range[0] * sizeof(Entry)) != size) {
    return false;
  }
  for (const Entry& entry : entries) {
    if (entry.key == static_cast<uint32_t>(key)) {
      offsets.push_back(entry.offset);
    }
  }
  return true;
}

void AccountIndex::Keep(const ProvedFile& passwd, const ProvedFile& group) {
  Header header = {};
  std::memcpy(header.magic, kMagic, sizeof(kMagic));
  if (passwd.ids.size() + group.ids.size() < kFewestEntries ||
      passwd.stamp.age < kYoungestSeconds || group.stamp.age < kYoungestSeconds ||
      !PutState(passwd.stamp, header.states[0]) || !PutState(group.stamp, header.states[1]) ||
      !IsFolderOurs()) {
    return;
  }
  NewFile file(Path());
  if (!file.Open()) {
    return;
  }
  header.counts[kUserNames] = header.counts[kUserIds] = passwd.ids.size();
  header.counts[kGroupNames] = header.counts[kGroupIds] = group.ids.size();
  std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
  bytes.reserve(sizeof(header) + 2 * (PartSize(passwd.ids.size()) + PartSize(group.ids.size())));
  AppendPart(bytes, passwd.hashes, passwd.offsets);
  AppendPart(bytes, passwd.ids, passwd.offsets);
  AppendPart(bytes, group.hashes, group.offsets);
  AppendPart(bytes, group.ids, group.offsets);
  if (file.Append(bytes)) {
    file.Replace(kMode);
  }
}

}  // namespace korvmailserver::account
