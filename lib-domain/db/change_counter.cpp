// SQLite counts the changes of a file in four bytes of its header, highest first.
#include "lib-domain/db/change_counter.h"

#include <cstdint>
#include <fstream>

#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB {

int GetChangeCounter() {
  constexpr std::streamoff kCounterAt = 24;
  const DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  std::ifstream file(handler == nullptr ? "" : handler->GetPath(), std::ios::binary);
  char bytes[4] = {};
  if (!file.seekg(kCounterAt) || !file.read(bytes, sizeof(bytes))) {
    return 0;
  }
  uint32_t counter = 0;
  for (const char byte : bytes) {
    counter = (counter << 8U) | static_cast<unsigned char>(byte);
  }
  return static_cast<int>(counter);
}

}  // namespace MDOMAIN::DB
