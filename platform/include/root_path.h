// The one place where a fixed path of the platform gets its prefix.
#ifndef PLATFORM_ROOT_PATH_H
#define PLATFORM_ROOT_PATH_H

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {

// The value of MDOMAIN_ROOT without trailing slashes, read with secure_getenv at each call; the
// empty string when it is unset, empty or "/". Within an OtherRoot that one's.
MDOMAIN_EXPORT std::string RootPrefix();

// RootPrefix() followed by `absolute_path`, which starts with "/".
MDOMAIN_EXPORT std::string UnderRoot(const std::string& absolute_path);

// While one lives, this thread works in another root; others and the environment do not notice. The
// shared key store is left alone there, and nothing waits for the disk: it is for copies.
class MDOMAIN_EXPORT OtherRoot {
 public:
  explicit OtherRoot(const std::string& root);
  ~OtherRoot();
  OtherRoot(const OtherRoot&) = delete;
  OtherRoot& operator=(const OtherRoot&) = delete;

  static bool IsInForce();

 private:
  const std::string root_;
  const std::string* outer_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_ROOT_PATH_H
