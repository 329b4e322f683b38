// The socket of a Redis connection. It never blocks, is closed in started programs, and raises no
// signal when the server is gone, so the caller's handling of SIGPIPE is left alone.
#include "platform/keystore/redis_connection.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/include/scope_guard.h"

namespace korvmailserver {

namespace {

constexpr char kTimeout[] = "no answer in time";

int MillisecondsLeft(RedisDeadline deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp<long long>(left.count(), 0, 1 << 30));
}

// Waits for `events`; false at the deadline.
bool Wait(int socket, short events, RedisDeadline deadline, short& seen) {
  while (true) {
    pollfd entry = {socket, events, 0};
    const int left = MillisecondsLeft(deadline);
    const int result = left == 0 ? 0 : poll(&entry, 1, left);
    if (result > 0) {
      seen = entry.revents;
      return true;
    }
    if (result == 0 || errno != EINTR) {
      return false;
    }
  }
}

// A connected socket, or -1 with `error` set.
int Connect(const sockaddr* address, socklen_t size, RedisDeadline deadline, std::string& error) {
  const int type = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
  const int fd = socket(address->sa_family, type, 0);
  if (fd < 0) {
    error = strerror(errno);
    return -1;
  }
  postara::ScopeGuard close_socket([fd] { close(fd); });
  int failure = connect(fd, address, size) == 0 ? 0 : errno;
  short seen = 0;
  if (failure == EINPROGRESS && !Wait(fd, POLLOUT, deadline, seen)) {
    error = kTimeout;
    return -1;
  }
  if (failure == EINPROGRESS) {
    socklen_t length = sizeof(failure);
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &failure, &length);
  }
  if (failure != 0) {
    error = strerror(failure);
    return -1;
  }
  close_socket.Dismiss();
  return fd;
}

struct Resolving {
  std::string host;
  std::string port;
  addrinfo hints = {};
  gaicb request = {};
};

using Addresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

// The addresses of a host. The resolver's own time-outs are longer than ours, so it is asked beside
// this thread; a look-up that is still open at the deadline keeps its memory for its late answer.
Addresses Resolve(const std::string& host, int port, RedisDeadline deadline, std::string& error) {
  auto query = std::make_unique<Resolving>();
  query->host = host;
  query->port = std::to_string(port);
  query->hints.ai_socktype = SOCK_STREAM;
  query->hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), query->port.c_str(), &query->hints, &found) == 0) {
    return {found, freeaddrinfo};
  }
  query->hints.ai_flags = AI_NUMERICSERV;
  query->request.ar_name = query->host.c_str();
  query->request.ar_service = query->port.c_str();
  query->request.ar_request = &query->hints;
  gaicb* list[] = {&query->request};
  int result = getaddrinfo_a(GAI_NOWAIT, list, 1, nullptr);
  while (result == 0 && (result = gai_error(list[0])) == EAI_INPROGRESS) {
    const int left = MillisecondsLeft(deadline);
    const timespec wait = {left / 1000, (left % 1000) * 1000000L};
    if (left > 0) {
      gai_suspend(list, 1, &wait);
      result = 0;
    } else if (gai_cancel(list[0]) == EAI_CANCELED) {
      break;
    } else {
      static_cast<void>(query.release());
      break;
    }
  }
  if (result != 0) {
    error = result == EAI_INPROGRESS ? "host name not resolved in time" : gai_strerror(result);
    return {nullptr, freeaddrinfo};
  }
  return {query->request.ar_result, freeaddrinfo};
}

std::string Format(const std::vector<RedisCommand>& commands) {
  std::string bytes;
  for (const RedisCommand& command : commands) {
    std::vector<const char*> words;
    std::vector<size_t> sizes;
    for (const std::string& word : command) {
      words.push_back(word.data());
      sizes.push_back(word.size());
    }
    char* formatted = nullptr;
    const int size = redisFormatCommandArgv(&formatted, static_cast<int>(words.size()),
                                            words.data(), sizes.data());
    if (size > 0) {
      bytes.append(formatted, static_cast<size_t>(size));
      redisFreeCommand(formatted);
    }
  }
  return bytes;
}

}  // namespace

RedisConnection::RedisConnection(int socket)
    : socket_(socket), reader_(redisReaderCreate(), redisReaderFree) {
  const int on = 1;
  setsockopt(socket_, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
  setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

RedisConnection::~RedisConnection() {
  close(socket_);
}

std::unique_ptr<RedisConnection> RedisConnection::OpenTcp(const std::string& host, int port,
                                                          RedisDeadline deadline,
                                                          std::string& error) {
  const Addresses addresses = Resolve(host, port, deadline, error);
  for (const addrinfo* address = addresses.get(); address != nullptr; address = address->ai_next) {
    const int socket = Connect(address->ai_addr, address->ai_addrlen, deadline, error);
    if (socket >= 0) {
      return std::unique_ptr<RedisConnection>(new RedisConnection(socket));
    }
  }
  return nullptr;
}

std::unique_ptr<RedisConnection> RedisConnection::OpenUnix(const std::string& path,
                                                           RedisDeadline deadline,
                                                           std::string& error) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    error = "the socket's path is too long";
    return nullptr;
  }
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int socket =
      Connect(reinterpret_cast<const sockaddr*>(&address), sizeof(address), deadline, error);
  return std::unique_ptr<RedisConnection>(socket < 0 ? nullptr : new RedisConnection(socket));
}

bool RedisConnection::Run(const std::vector<RedisCommand>& commands,
                          std::vector<RedisReply>& replies, RedisDeadline deadline,
                          std::string& error) {
  const std::string bytes = Format(commands);
  size_t sent = 0;
  replies.clear();
  while (replies.size() < commands.size()) {
    const bool sending = sent < bytes.size();
    short seen = 0;
    // Both ways at once: a server stops reading when nobody takes its answers.
    if (!Wait(socket_, static_cast<short>(POLLIN | (sending ? POLLOUT : 0)), deadline, seen)) {
      error = kTimeout;
      return false;
    }
    if ((seen & ~POLLOUT) != 0 && !Receive(replies, error)) {
      return false;
    }
    if ((seen & POLLOUT) != 0 && sending && !Send(bytes, sent, error)) {
      return false;
    }
  }
  if (replies.size() > commands.size()) {
    error = "an answer to no question";
    return false;
  }
  return true;
}

int RedisConnection::Await(RedisDeadline deadline, std::string& error) {
  std::vector<RedisReply> replies;
  while (replies.empty()) {
    short seen = 0;
    if (!Wait(socket_, POLLIN, deadline, seen)) {
      return 0;
    }
    if (!Receive(replies, error)) {
      return -1;
    }
  }
  return 1;
}

bool RedisConnection::Send(const std::string& bytes, size_t& sent, std::string& error) const {
  const ssize_t count = send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
  if (count >= 0) {
    sent += static_cast<size_t>(count);
    return true;
  }
  error = strerror(errno);
  return errno == EAGAIN || errno == EINTR;
}

bool RedisConnection::Receive(std::vector<RedisReply>& replies, std::string& error) {
  char buffer[65536];
  const ssize_t count = recv(socket_, buffer, sizeof(buffer), 0);
  if (count <= 0) {
    error = count == 0 ? "the server closed the connection" : strerror(errno);
    return count < 0 && (errno == EAGAIN || errno == EINTR);
  }
  void* reply = nullptr;
  if (redisReaderFeed(reader_.get(), buffer, static_cast<size_t>(count)) != REDIS_OK) {
    error = reader_->errstr;
    return false;
  }
  while (redisReaderGetReply(reader_.get(), &reply) == REDIS_OK && reply != nullptr) {
    replies.emplace_back(static_cast<redisReply*>(reply));
    reply = nullptr;
  }
  if (reader_->err != 0) {
    error = std::string("not a Redis answer: ") + reader_->errstr;
    return false;
  }
  return true;
}

}  // namespace korvmailserver
