// Snapshots through SQLite's backup interface, which takes the locks that a copy of the file would
// not.
#include "platform/keystore/snapshot.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "platform/include/files.h"
#include "platform/include/sqlite.h"

namespace korvmailserver {

namespace {

constexpr char kDatabaseHead[] = "SQLite format 3";  // with its terminating zero: 16 bytes

constexpr int kBusyTimeout = 10000;

// sqlite3_backup_step answers "busy" without waiting, so a read transaction waits for it.
bool CopyDatabase(const std::string& path, std::string& bytes, std::string& error) {
  Connection source;
  Connection copy;
  if (source.Open(path, Connection::Mode::kWrite, kBusyTimeout) != SQLITE_OK ||
      source.Run("BEGIN; SELECT count(*) FROM sqlite_master") != SQLITE_OK) {
    error = source.Error();
    return false;
  }
  if (copy.Open(":memory:", Connection::Mode::kCreate, kBusyTimeout) != SQLITE_OK) {
    error = copy.Error();
    return false;
  }
  sqlite3_backup* backup = sqlite3_backup_init(copy.Get(), "main", source.Get(), "main");
  sqlite3_backup_step(backup, -1);
  const int result = sqlite3_backup_finish(backup);
  sqlite3_int64 size = 0;
  const std::unique_ptr<unsigned char, void (*)(void*)> image(
      sqlite3_serialize(copy.Get(), "main", &size, 0), sqlite3_free);
  if (result != SQLITE_OK || image == nullptr) {
    error = std::string("cannot copy the database: ") + sqlite3_errmsg(copy.Get());
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

void Digest::Add(std::string_view bytes) {
  sha256_update(&state_, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data()));
}

std::string Digest::Bytes() {
  uint8_t bytes[SHA256_DIGEST_SIZE];
  sha256_digest(&state_, sizeof(bytes), bytes);
  return {reinterpret_cast<const char*>(bytes), sizeof(bytes)};
}

std::string Digest::Text() {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : Bytes()) {
    const auto number = static_cast<unsigned char>(byte);
    text += kDigits[number >> 4];
    text += kDigits[number & 15];
  }
  return text;
}

std::string DigestOf(std::string_view bytes) {
  Digest digest;
  digest.Add(bytes);
  return digest.Text();
}

}  // namespace korvmailserver
