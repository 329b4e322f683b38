#include "web/http/connection.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace mdomain_web {

namespace {

constexpr std::chrono::seconds kToFinish{2};

void Split(const sockaddr_storage& from, std::string& address, int& port) {
  char text[INET6_ADDRSTRLEN] = "";
  port = 0;
  if (from.ss_family == AF_INET) {
    const auto& four = reinterpret_cast<const sockaddr_in&>(from);
    inet_ntop(AF_INET, &four.sin_addr, text, sizeof(text));
    port = ntohs(four.sin_port);
  } else if (from.ss_family == AF_INET6) {
    const auto& six = reinterpret_cast<const sockaddr_in6&>(from);
    inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof(text));
    port = ntohs(six.sin6_port);
  }
  address = text;
}

}  // namespace

Connection::Connection(int socket, std::chrono::seconds to_receive, std::chrono::seconds to_send)
    : socket_(socket), receive_until_(Clock::now() + to_receive), to_send_(to_send) {}

Connection::~Connection() {
  close(socket_);
}

void Connection::Finish() {
  shutdown(socket_, SHUT_WR);
  const auto deadline = Clock::now() + kToFinish;
  char rest[4096];
  while (_Wait(POLLIN, deadline) && recv(socket_, rest, sizeof(rest), 0) > 0) {
  }
}

bool Connection::_Wait(short events, Clock::time_point deadline) const {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      return false;
    }
    pollfd asked{socket_, events, 0};
    const int ready = poll(&asked, 1, static_cast<int>(std::min<long long>(left, 60'000)));
    if (ready > 0) {
      return true;
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
  }
}

bool Connection::is_readable() const {
  return _Wait(POLLIN, receive_until_);
}

bool Connection::is_writable() const {
  return true;
}

ssize_t Connection::read(char* data, size_t size) {
  return _Wait(POLLIN, receive_until_) ? recv(socket_, data, size, 0) : -1;
}

ssize_t Connection::write(const char* data, size_t size) {
  if (send_until_ == Clock::time_point{}) {
    send_until_ = Clock::now() + to_send_;
  }
  while (_Wait(POLLOUT, send_until_)) {
    const ssize_t sent = send(socket_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0 || (errno != EAGAIN && errno != EINTR)) {
      return sent;
    }
  }
  return -1;
}

void Connection::get_remote_ip_and_port(std::string& address, int& port) const {
  sockaddr_storage from{};
  socklen_t size = sizeof(from);
  getpeername(socket_, reinterpret_cast<sockaddr*>(&from), &size);
  Split(from, address, port);
}

void Connection::get_local_ip_and_port(std::string& address, int& port) const {
  sockaddr_storage from{};
  socklen_t size = sizeof(from);
  getsockname(socket_, reinterpret_cast<sockaddr*>(&from), &size);
  Split(from, address, port);
}

}  // namespace mdomain_web
