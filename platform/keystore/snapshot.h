// The bytes of a file as they are published, and their digest.
#ifndef PLATFORM_KEYSTORE_SNAPSHOT_H
#define PLATFORM_KEYSTORE_SNAPSHOT_H

#include <nettle/sha2.h>

#include <string>

namespace korvmailserver {

// The content of a file; of an SQLite database a consistent image of its last committed state, also
// while another connection writes. False with `error` set.
bool ReadSnapshot(const std::string& path, std::string& bytes, std::string& error);

// SHA-256 in hexadecimal, of pieces in order.
class Digest {
 public:
  Digest() { sha256_init(&state_); }
  void Add(const std::string& bytes);
  // Ends the digest; the next Add begins a new one.
  std::string Text();

 private:
  sha256_ctx state_;
};

std::string DigestOf(const std::string& bytes);

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_SNAPSHOT_H
