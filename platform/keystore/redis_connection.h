// One connection to a Redis server or sentinel: commands out, replies in, never later than a
// deadline.
//
// hiredis writes and reads the protocol; the socket is this class's own. The library's socket calls
// count their time-out per read, so a server that drips bytes holds them for ever, they let a
// broken connection end the process with SIGPIPE, and they leak the socket into started programs.
#ifndef PLATFORM_KEYSTORE_REDIS_CONNECTION_H
#define PLATFORM_KEYSTORE_REDIS_CONNECTION_H

#include <hiredis/hiredis.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace korvmailserver {

using RedisDeadline = std::chrono::steady_clock::time_point;
using RedisCommand = std::vector<std::string>;

struct RedisReplyFree {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using RedisReply = std::unique_ptr<redisReply, RedisReplyFree>;

class RedisConnection {
 public:
  ~RedisConnection();
  RedisConnection(const RedisConnection&) = delete;
  RedisConnection& operator=(const RedisConnection&) = delete;

  // Null, with `error` set, when there is no connection at the deadline.
  static std::unique_ptr<RedisConnection> OpenTcp(const std::string& host, int port,
                                                  RedisDeadline deadline, std::string& error);
  static std::unique_ptr<RedisConnection> OpenUnix(const std::string& path, RedisDeadline deadline,
                                                   std::string& error);

  // Sends all commands in one go and waits for a reply to each. An error that the server answers is
  // a reply. False, with `error` set, when the connection broke or the deadline passed; the
  // connection is of no use then.
  bool Run(const std::vector<RedisCommand>& commands, std::vector<RedisReply>& replies,
           RedisDeadline deadline, std::string& error);
  // Waits for something that the server says of itself, and takes all that is there. 1: it said
  // something, 0: the deadline passed, -1: the connection broke, with `error` set.
  int Await(RedisDeadline deadline, std::string& error);

 private:
  explicit RedisConnection(int socket);
  bool Send(const std::string& bytes, size_t& sent, std::string& error) const;
  bool Receive(std::vector<RedisReply>& replies, std::string& error);

  const int socket_;
  const std::unique_ptr<redisReader, void (*)(redisReader*)> reader_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REDIS_CONNECTION_H
