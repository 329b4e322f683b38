// The bytes of a file as they are published, and their digest.
#ifndef PLATFORM_KEYSTORE_SNAPSHOT_H
#define PLATFORM_KEYSTORE_SNAPSHOT_H

#include <nettle/sha2.h>

#include <string>
#include <string_view>

#include "platform/include/digest.h"

namespace korvmailserver {

// The content of a file; of an SQLite database a consistent image of its last committed state, also
// while another connection writes. False with `error` set.
bool ReadSnapshot(const std::string& path, std::string& bytes, std::string& error);

// SHA-256, of bytes in order.
class Digest {
 public:
  Digest() { sha256_init(&state_); }
  void Add(std::string_view bytes);
  // Either ends the digest; the next Add begins a new one.
  std::string Bytes();  // 32 of them
  std::string Text();   // in hexadecimal

 private:
  sha256_ctx state_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_SNAPSHOT_H
