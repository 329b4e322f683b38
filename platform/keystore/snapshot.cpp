// Snapshots through SQLite's backup interface, which takes the locks that a copy of the file would
// not.
#include "platform/keystore/snapshot.h"

#include <sqlite3.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "platform/include/files.h"

namespace korvmailserver {

namespace {

const char kDatabaseHead[] = "SQLite format 3";  // with its terminating zero: 16 bytes

constexpr int kBusyTimeout = 10000;

using Database = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

Database Open(const char* path, int flags) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path, &db, flags, nullptr);
  sqlite3_busy_timeout(db, kBusyTimeout);
  return {db, sqlite3_close};
}

// sqlite3_backup_step answers "busy" without waiting, so a read transaction waits for it.
bool CopyDatabase(const std::string& path, std::string& bytes, std::string& error) {
  const Database source = Open(path.c_str(), SQLITE_OPEN_READWRITE);
  const Database copy = Open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  int result = sqlite3_exec(source.get(), "BEGIN; SELECT count(*) FROM sqlite_master", nullptr,
                            nullptr, nullptr);
  if (result != SQLITE_OK) {
    error = sqlite3_errmsg(source.get());
    return false;
  }
  sqlite3_backup* backup = sqlite3_backup_init(copy.get(), "main", source.get(), "main");
  sqlite3_backup_step(backup, -1);
  result = sqlite3_backup_finish(backup);
  sqlite3_int64 size = 0;
  const std::unique_ptr<unsigned char, void (*)(void*)> image(
      sqlite3_serialize(copy.get(), "main", &size, 0), sqlite3_free);
  if (result != SQLITE_OK || image == nullptr) {
    error = std::string("cannot copy the database: ") + sqlite3_errmsg(copy.get());
    return false;
  }
  bytes.assign(reinterpret_cast<const char*>(image.get()), static_cast<size_t>(size));
  return true;
}

}  // namespace

bool ReadSnapshot(const std::string& path, std::string& bytes, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  char head[sizeof(kDatabaseHead)] = {};
  file.read(head, sizeof(head));
  if (memcmp(head, kDatabaseHead, sizeof(head)) == 0) {
    if (CopyDatabase(path, bytes, error)) {
      return true;
    }
  } else if (ReadFile(path, bytes) == 0) {
    return true;
  } else {
    error = strerror(errno);
  }
  error = "cannot read " + path + ": " + error;
  return false;
}

void Digest::Add(const std::string& bytes) {
  sha256_update(&state_, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
}

std::string Digest::Text() {
  uint8_t bytes[SHA256_DIGEST_SIZE];
  sha256_digest(&state_, sizeof(bytes), bytes);
  std::string text;
  for (const uint8_t byte : bytes) {
    const char digits[] = "0123456789abcdef";
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::string DigestOf(const std::string& bytes) {
  Digest digest;
  digest.Add(bytes);
  return digest.Text();
}

}  // namespace korvmailserver
