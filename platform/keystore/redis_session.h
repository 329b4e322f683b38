// A login at the Redis server that is in charge: found through the sentinels if there are any, its
// role checked, opened again once per call when it breaks.
//
// A call ends within the connect and the command time-out together, also when its first connection
// hangs and a second one is tried.
#ifndef PLATFORM_KEYSTORE_REDIS_SESSION_H
#define PLATFORM_KEYSTORE_REDIS_SESSION_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/include/host_settings.h"
#include "platform/keystore/redis_connection.h"

namespace korvmailserver {

class RedisSession {
 public:
  enum class Access {
    kRead,   // from a replica too, when no sentinels are set
    kWrite,  // on the primary
  };

  explicit RedisSession(const KeyStoreSettings& settings);

  std::string Name() const;

  // Runs `work`, which talks by Run, Write and Confirm, and runs it whole again on a new connection
  // when the old one broke. False with `error` set.
  bool Call(Access access, std::string& error, const std::function<bool()>& work);

  // Only within a call. Each fails when an answer is an error, also inside a transaction.
  bool Run(const std::vector<RedisCommand>& commands, std::vector<RedisReply>& replies);
  // The same for questions about names that may hold a value of another kind than is asked for:
  // such an answer is handed out (IsOtherKind in redis_reply.h) and is no failure.
  bool Read(const std::vector<RedisCommand>& commands, std::vector<RedisReply>& replies);
  // Runs the commands as one transaction and waits for the replicas that the settings ask for. When
  // a watched key had changed nothing was written, and `overtaken`, where given, says so.
  bool Write(const std::vector<RedisCommand>& commands, bool* overtaken = nullptr);
  // Removes fields of a hash on this connection as well as may be; the reason of a failure before
  // it stays.
  void RemoveFields(const std::string& hash, const std::vector<std::string>& fields);
  // True when everything that was written to this server so far has reached these replicas.
  bool Confirm();
  // Waits for a message on a channel, which the connection is for from now on: `told` is 1, or 0
  // when the seconds are over.
  bool Listen(const std::string& channel, int seconds, int& told);
  // Ends the work with a reason of its own.
  bool Fail(const std::string& reason);
  // Gives the work another command time-out: it moves on, but has much to do.
  void Prolong();

 private:
  bool Open();
  bool FindPrimary(RedisDeadline deadline, std::string& host, int& port);
  void CountReplicas(const redisReply& replicas);
  bool AskSentinel(size_t number, RedisDeadline deadline, std::string& host, int& port);
  bool Login(RedisDeadline deadline);
  bool TakeRole(const redisReply& role);
  bool Accept(const std::vector<RedisReply>& replies, bool of_any_kind);
  bool WaitForReplicas(const redisReply& count);
  RedisCommand WaitCommand() const;
  bool Break(const std::string& reason);
  RedisDeadline Within(int seconds) const;

  const KeyStoreSettings settings_;
  std::unique_ptr<RedisConnection> connection_;
  RedisDeadline deadline_;
  std::string address_;     // of the connection
  std::string upstream_;    // the primary of a replica; empty on a primary
  int replicas_ = 0;        // how many must have a write; 0: none
  bool listens_ = false;    // to a channel
  bool confirmed_ = false;  // by the replicas, on this connection
  bool broken_ = false;     // the work failed with its connection and may be tried on another
  std::string error_;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_REDIS_SESSION_H
