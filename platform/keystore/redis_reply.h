// Reading Redis replies.
#ifndef PLATFORM_KEYSTORE_REDIS_REPLY_H
#define PLATFORM_KEYSTORE_REDIS_REPLY_H

#include <hiredis/hiredis.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>

namespace korvmailserver {

// The empty string for everything that is no string.
inline std::string RedisText(const redisReply* reply) {
  return reply->type == REDIS_REPLY_STRING || reply->type == REDIS_REPLY_STATUS
             ? std::string(reply->str, reply->len)
             : std::string();
}

inline long long RedisNumber(const redisReply* reply) {
  return reply->type == REDIS_REPLY_INTEGER ? reply->integer : atoll(RedisText(reply).c_str());
}

// An error whose text begins with `code`.
inline bool IsRedisError(const redisReply& reply, const char* code = "") {
  return reply.type == REDIS_REPLY_ERROR && std::string(reply.str, reply.len).rfind(code, 0) == 0;
}

// The name that was asked for holds a value of another kind than the question is about.
inline bool IsOtherKind(const redisReply& reply) {
  return IsRedisError(reply, "WRONGTYPE");
}

inline bool IsRedisList(const redisReply& reply, size_t count) {
  return reply.type == REDIS_REPLY_ARRAY && reply.elements == count;
}

inline std::set<std::string> RedisSet(const redisReply& reply) {
  std::set<std::string> members;
  for (size_t i = 0; reply.type == REDIS_REPLY_ARRAY && i < reply.elements; ++i) {
    members.insert(RedisText(reply.element[i]));
  }
  return members;
}

inline std::map<std::string, std::string> RedisHash(const redisReply& reply) {
  std::map<std::string, std::string> fields;
  for (size_t i = 0; reply.type == REDIS_REPLY_ARRAY && i + 1 < reply.elements; i += 2) {
    fields[RedisText(reply.element[i])] = RedisText(reply.element[i + 1]);
  }
  return fields;
}

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REDIS_REPLY_H
