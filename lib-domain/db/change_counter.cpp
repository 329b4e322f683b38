// SQLite counts the changes of a file in four bytes of its header, highest first.
#include "lib-domain/db/change_counter.h"

#include <cerrno>
#include <cstdint>
#include <fstream>

#include "lib-domain/base/log_line.h"
#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB {

bool GetChangeCounter(int& counter) {
  constexpr std::streamoff kCounterAt = 24;
  const DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  const std::string path = handler == nullptr ? "" : handler->GetPath();
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  char bytes[4] = {};
  if (!file.seekg(kCounterAt) || !file.read(bytes, sizeof(bytes))) {
    LOG_ERROR("Failed to read [%s], %m", path.c_str());
    return false;
  }
  uint32_t read = 0;
  for (const char byte : bytes) {
    read = (read << 8U) | static_cast<unsigned char>(byte);
  }
  counter = static_cast<int>(read);
  return true;
}

}  // namespace MDOMAIN::DB
