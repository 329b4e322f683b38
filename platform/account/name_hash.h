// A hash of a name that is the same in every process.
#ifndef PLATFORM_ACCOUNT_NAME_HASH_H
#define PLATFORM_ACCOUNT_NAME_HASH_H

#include <cstdint>
#include <cstring>
#include <string_view>

namespace korvmailserver::account {

inline uint64_t Load(const char* bytes, size_t count) {
  uint64_t word = 0;
  std::memcpy(&word, bytes, count);
  return word;
}

inline uint64_t Mix(uint64_t hash, uint64_t word) {
  hash = (hash ^ word) * 0x9E3779B97F4A7C15U;
  return hash ^ (hash >> 29);
}

inline uint64_t HashOf(std::string_view name) {
  const char* at = name.data();
  size_t left = name.size();
  uint64_t hash = left;
  for (; left > 8; left -= 8, at += 8) {
    hash = Mix(hash, Load(at, 8));
  }
  uint64_t rest = 0;
  if (left == 8) {
    rest = Load(at, 8);
  } else if (left >= 4) {
    rest = Load(at, 4) | Load(at + left - 4, 4) << 32;
  } else if (left > 0) {
    rest = Load(at, 1) | Load(at + left / 2, 1) << 8 | Load(at + left - 1, 1) << 16;
  }
  return Mix(Mix(hash, rest), 0);
}

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_NAME_HASH_H
