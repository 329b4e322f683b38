#include "tools/mdomain/document.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <iterator>

#include "platform/include/files.h"

namespace mdomain {

std::string ReadInput(const std::string& name, Status missing) {
  if (name == "-") {
    return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
  }
  std::string bytes;
  if (korvmailserver::ReadFile(name, bytes) < 0) {
    throw Failure(missing, name + " could not be read: " + std::strerror(errno));
  }
  return bytes;
}

}  // namespace mdomain
