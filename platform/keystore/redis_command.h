// Writing Redis commands.
#ifndef PLATFORM_KEYSTORE_REDIS_COMMAND_H
#define PLATFORM_KEYSTORE_REDIS_COMMAND_H

#include <string>
#include <vector>

#include "platform/keystore/redis_connection.h"

namespace korvmailserver {

// Keys in one command: what the server works on without serving others in between.
constexpr size_t kKeysPerCommand = 1000;

// Commands that begin with `start` and go on with the names, some at a time.
template <typename Names>
void AppendInParts(const RedisCommand& start, const Names& names, const std::string& before,
                   std::vector<RedisCommand>& commands) {
  size_t count = 0;
  for (const std::string& name : names) {
    if (count++ % kKeysPerCommand == 0) {
      commands.push_back(start);
    }
    commands.back().push_back(before + name);
  }
}

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REDIS_COMMAND_H
