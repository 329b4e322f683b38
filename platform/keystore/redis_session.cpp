// Sentinels, login, role, retries and the confirmation by replicas.
//
// A primary that was voted out goes on taking writes for seconds and loses them. What guards
// against that is the confirmation: its replicas have left it, so it cannot give one.
#include "platform/keystore/redis_session.h"

#include <algorithm>
#include <cstdlib>

#include "platform/keystore/redis_reply.h"

namespace korvmailserver {

namespace {

std::string Text(const redisReply& reply) {
  return reply.str == nullptr ? std::string() : std::string(reply.str, reply.len);
}

// The first error in a reply: the reply itself, or one inside a transaction; null without one.
const redisReply* FindError(const redisReply& reply) {
  if (IsRedisError(reply)) {
    return &reply;
  }
  for (size_t i = 0; reply.type == REDIS_REPLY_ARRAY && i < reply.elements; ++i) {
    if (IsRedisError(*reply.element[i])) {
      return reply.element[i];
    }
  }
  return nullptr;
}

std::string Address(const std::string& host, int port) {
  return host + ":" + std::to_string(port);
}

}  // namespace

RedisSession::RedisSession(const KeyStoreSettings& settings) : settings_(settings) {}

std::string RedisSession::Name() const {
  if (!settings_.sentinels.empty()) {
    return "redis " + settings_.master + (address_.empty() ? "" : " at " + address_);
  }
  return "redis " +
         (settings_.socket.empty() ? Address(settings_.host, settings_.port) : settings_.socket);
}

RedisDeadline RedisSession::Within(int seconds) const {
  return std::min(deadline_, std::chrono::steady_clock::now() + std::chrono::seconds(seconds));
}

void RedisSession::Prolong() {
  deadline_ = std::chrono::steady_clock::now() +
              std::chrono::seconds(settings_.connect_timeout + settings_.command_timeout);
}

bool RedisSession::Fail(const std::string& reason) {
  error_ = reason;
  return false;
}

bool RedisSession::Break(const std::string& reason) {
  connection_.reset();
  broken_ = true;
  return Fail(reason);
}

bool RedisSession::Call(Access access, std::string& error, const std::function<bool()>& work) {
  Prolong();
  bool done = false;
  for (int attempt = 0; attempt < 2; ++attempt) {
    const bool kept = connection_ != nullptr;
    if (!kept && !Open()) {
      break;
    }
    broken_ = false;
    if (access != Access::kRead && !upstream_.empty()) {
      // What an earlier call learnt may be out of date; what this one learnt is not.
      Break("it is a replica of " + upstream_ +
            " and takes no writes; name the primary, or set sentinels and master");
      if (!kept) {
        break;
      }
    } else {
      done = work();
    }
    if (done || !broken_) {
      break;
    }
  }
  error = done ? "" : error_;
  return done;
}

bool RedisSession::Open() {
  confirmed_ = false;
  listens_ = false;
  replicas_ = settings_.min_replicas;
  const RedisDeadline deadline = Within(settings_.connect_timeout);
  std::string reason;
  std::string host = settings_.host;
  int port = settings_.port;
  address_.clear();
  if (!settings_.socket.empty()) {
    connection_ = RedisConnection::OpenUnix(settings_.socket, deadline, reason);
  } else {
    if (!settings_.sentinels.empty() && !FindPrimary(deadline, host, port)) {
      return false;
    }
    address_ = Address(host, port);
    connection_ = RedisConnection::OpenTcp(host, port, deadline, reason);
  }
  return connection_ ? Login(deadline) : Fail("cannot connect: " + reason);
}

// Asks one sentinel after the other. Each gets an equal part of the time, so that one that hangs
// does not use up what the next ones and the server need.
bool RedisSession::FindPrimary(RedisDeadline deadline, std::string& host, int& port) {
  std::string reasons;
  const size_t count = settings_.sentinels.size();
  for (size_t i = 0; i < count; ++i) {
    const auto now = std::chrono::steady_clock::now();
    const auto share = (deadline - now) / static_cast<int>(count - i + 1);
    if (AskSentinel(i, now + share, host, port)) {
      return true;
    }
    reasons += (reasons.empty() ? "" : "; ") + error_;
  }
  return Fail("no sentinel tells the primary: " + reasons);
}

bool RedisSession::AskSentinel(size_t number, RedisDeadline deadline, std::string& host,
                               int& port) {
  const auto& [sentinel_host, sentinel_port] = settings_.sentinels[number];
  const std::string name = Address(sentinel_host, sentinel_port) + ": ";
  std::string reason;
  std::vector<RedisReply> replies;
  const auto sentinel = RedisConnection::OpenTcp(sentinel_host, sentinel_port, deadline, reason);
  if (!sentinel || !sentinel->Run({{"SENTINEL", "get-master-addr-by-name", settings_.master},
                                   {"SENTINEL", "replicas", settings_.master}},
                                  replies, deadline, reason)) {
    return Fail(name + reason);
  }
  const redisReply& answer = *replies[0];
  if (IsRedisError(answer)) {
    return Fail(name + Text(answer));
  }
  if (answer.type != REDIS_REPLY_ARRAY || answer.elements != 2) {
    return Fail(name + "knows no " + settings_.master);
  }
  host = Text(*answer.element[0]);
  port = atoi(Text(*answer.element[1]).c_str());
  CountReplicas(*replies[1]);
  return true;
}

// Each replica is a list of names and values. One that is down, or has the priority 0, is never put
// in the primary's place.
void RedisSession::CountReplicas(const redisReply& replicas) {
  int alive = 0;
  for (size_t i = 0; replicas.type == REDIS_REPLY_ARRAY && i < replicas.elements; ++i) {
    const redisReply& fields = *replicas.element[i];
    bool candidate = true;
    for (size_t j = 0; j + 1 < fields.elements; j += 2) {
      const std::string name = Text(*fields.element[j]);
      const std::string value = Text(*fields.element[j + 1]);
      const bool down = value.find("_down") != std::string::npos ||
                        value.find("disconnected") != std::string::npos;
      candidate =
          candidate && !(name == "flags" && down) && !(name == "slave-priority" && value == "0");
    }
    alive += candidate ? 1 : 0;
  }
  replicas_ = settings_.min_replicas == 0 ? 0 : std::max(settings_.min_replicas, alive);
}

bool RedisSession::Login(RedisDeadline deadline) {
  std::vector<RedisCommand> commands;
  if (!settings_.user.empty()) {
    commands.push_back({"AUTH", settings_.user, settings_.password});
  } else if (!settings_.password.empty()) {
    commands.push_back({"AUTH", settings_.password});
  }
  if (settings_.database != 0) {
    commands.push_back({"SELECT", std::to_string(settings_.database)});
  }
  commands.push_back({"ROLE"});
  std::vector<RedisReply> replies;
  std::string reason;
  if (!connection_->Run(commands, replies, deadline, reason)) {
    return Break("login: " + reason);
  }
  for (size_t i = 0; i < replies.size(); ++i) {
    if (IsRedisError(*replies[i])) {
      return Break(commands[i][0] + " refused: " + Text(*replies[i]));
    }
  }
  return TakeRole(*replies.back());
}

bool RedisSession::TakeRole(const redisReply& role) {
  const bool list = role.type == REDIS_REPLY_ARRAY && role.elements > 0;
  const std::string name = list ? Text(*role.element[0]) : "";
  upstream_.clear();
  if (name == "master") {
    return true;
  }
  if (name != "slave" || role.elements < 3) {
    return Break("its role is \"" + name + "\", not that of a server");
  }
  upstream_ = Address(Text(*role.element[1]), static_cast<int>(role.element[2]->integer));
  if (!settings_.sentinels.empty()) {
    return Break("the sentinels name it as the primary, but it is a replica of " + upstream_ +
                 "; a failover may be under way");
  }
  return true;
}

bool RedisSession::Run(const std::vector<RedisCommand>& commands,
                       std::vector<RedisReply>& replies) {
  return Read(commands, replies) && Accept(replies, false);
}

bool RedisSession::Read(const std::vector<RedisCommand>& commands,
                        std::vector<RedisReply>& replies) {
  std::string reason;
  if (!connection_->Run(commands, replies, Within(settings_.command_timeout), reason)) {
    return Break(reason);
  }
  return Accept(replies, true);
}

// A server that became a replica, or is being shut down, is no longer the one to talk to.
bool RedisSession::Accept(const std::vector<RedisReply>& replies, bool of_any_kind) {
  for (const RedisReply& reply : replies) {
    const redisReply* failed = FindError(*reply);
    if (failed != nullptr && !(of_any_kind && IsOtherKind(*failed))) {
      return IsRedisError(*failed, "READONLY") || IsRedisError(*failed, "UNBLOCKED")
                 ? Break("it became a replica: " + Text(*failed))
                 : Fail(Text(*failed));
    }
  }
  return true;
}

bool RedisSession::Write(const std::vector<RedisCommand>& commands, bool* overtaken) {
  std::vector<RedisCommand> whole = {{"MULTI"}};
  whole.insert(whole.end(), commands.begin(), commands.end());
  whole.push_back({"EXEC"});
  if (replicas_ > 0) {
    whole.push_back(WaitCommand());
  }
  std::vector<RedisReply> replies;
  if (!Run(whole, replies)) {
    return false;
  }
  if (replies[commands.size() + 1]->type == REDIS_REPLY_NIL) {
    if (overtaken == nullptr) {
      return Fail("what was read had changed before it was written");
    }
    *overtaken = true;
    return true;
  }
  return replicas_ == 0 || WaitForReplicas(*replies.back());
}

bool RedisSession::Listen(const std::string& channel, int seconds, int& told) {
  std::vector<RedisReply> replies;
  if (!listens_ && !Run({{"SUBSCRIBE", channel}}, replies)) {
    return false;
  }
  listens_ = true;
  std::string reason;
  const RedisDeadline deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  told = connection_->Await(deadline, reason);
  return told >= 0 || Break(reason);
}

void RedisSession::RemoveFields(const std::string& hash, const std::vector<std::string>& fields) {
  RedisCommand command = {"HDEL", hash};
  command.insert(command.end(), fields.begin(), fields.end());
  std::vector<RedisReply> replies;
  std::string reason;
  if (!fields.empty() && connection_ != nullptr &&
      !connection_->Run({command}, replies, Within(settings_.command_timeout), reason)) {
    connection_.reset();
  }
}

bool RedisSession::Confirm() {
  if (replicas_ == 0 || confirmed_) {
    return true;
  }
  // WAIT counts this connection's own writes only, so there must be one.
  return Write({{"SET", settings_.prefix + "confirm", "1", "EX", "60"}});
}

// The server answers in time for the answer to get here before the deadline.
RedisCommand RedisSession::WaitCommand() const {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      Within(settings_.command_timeout) - std::chrono::steady_clock::now());
  const long long wait = std::max<long long>(left.count() * 4 / 5, 1);
  return {"WAIT", std::to_string(replicas_), std::to_string(wait)};
}

bool RedisSession::WaitForReplicas(const redisReply& count) {
  confirmed_ = count.integer >= replicas_;
  if (confirmed_) {
    return true;
  }
  // The next call asks the sentinels anew: this server may have been voted out.
  connection_.reset();
  return Fail(std::to_string(count.integer) + " of the " + std::to_string(replicas_) +
              " replicas that must confirm the write have done so; it may be lost");
}

}  // namespace korvmailserver
