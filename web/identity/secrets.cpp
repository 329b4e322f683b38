#include "web/identity/secrets.h"

#include <nettle/memops.h>
#include <sys/random.h>

#include <stdexcept>

#include "platform/include/digest.h"

namespace mdomain_web {

namespace {

std::string Hexadecimal(const unsigned char* data, std::size_t size) {
  static const char* const kDigits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 15];
  }
  return text;
}

}  // namespace

std::string NewSecret() {
  unsigned char random[32];
  if (getrandom(random, sizeof(random), 0) != static_cast<ssize_t>(sizeof(random))) {
    throw std::runtime_error("the system has no random numbers");
  }
  return Hexadecimal(random, sizeof(random));
}

std::string Digest(const std::string& text) {
  return korvmailserver::DigestOf(text);
}

bool IsSame(const std::string& one, const std::string& other) {
  return one.size() == other.size() && memeql_sec(one.data(), other.data(), one.size()) != 0;
}

}  // namespace mdomain_web
