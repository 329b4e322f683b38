// The root prefix of every fixed path, read anew at each call so that one process can work on
// several roots after each other.
#include "platform/include/root_path.h"

#include <cstdlib>
#include <utility>

namespace korvmailserver {

namespace {

thread_local const std::string* of_thread = nullptr;

}  // namespace

OtherRoot::OtherRoot(const std::string& root)
    : root_(root), outer_(std::exchange(of_thread, &root_)) {}

OtherRoot::~OtherRoot() {
  of_thread = outer_;
}

bool OtherRoot::IsInForce() {
  return of_thread != nullptr;
}

std::string RootPrefix() {
  if (OtherRoot::IsInForce()) {
    return *of_thread;
  }
  const char* value = secure_getenv("MDOMAIN_ROOT");
  std::string root = value == nullptr ? "" : value;
  root.erase(root.find_last_not_of('/') + 1);
  return root;
}

std::string UnderRoot(const std::string& absolute_path) {
  return RootPrefix() + absolute_path;
}

}  // namespace korvmailserver
