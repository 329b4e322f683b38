#include "web/http/listening.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace mdomain_web {

namespace {

constexpr int kFirstOfSystemd = 3;  // sd_listen_fds(3)
constexpr int kBacklog = 256;

[[noreturn]] void Fail(const std::string& name) {
  throw std::runtime_error(name + ": " + strerror(errno));
}

bool IsUnixSocket(int socket) {
  sockaddr_storage at{};
  socklen_t size = sizeof(at);
  return getsockname(socket, reinterpret_cast<sockaddr*>(&at), &size) == 0 &&
         at.ss_family == AF_UNIX;
}

bool IsGivenBySystemd() {
  const char* pid = getenv("LISTEN_PID");
  const char* count = getenv("LISTEN_FDS");
  return pid != nullptr && count != nullptr && std::string(count) == "1" &&
         std::to_string(getpid()) == pid;
}

int NewUnixSocket(const std::string& path) {
  sockaddr_un at{};
  at.sun_family = AF_UNIX;
  if (path.size() >= sizeof(at.sun_path)) {
    errno = ENAMETOOLONG;
    Fail(path);
  }
  path.copy(at.sun_path, path.size());
  const auto* address = reinterpret_cast<const sockaddr*>(&at);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct stat there {};
  if (lstat(path.c_str(), &there) == 0 && S_ISSOCK(there.st_mode)) {
    if (connect(socket, address, sizeof(at)) == 0) {
      errno = EADDRINUSE;
      Fail(path);
    }
    unlink(path.c_str());
  }
  if (bind(socket, address, sizeof(at)) != 0 || listen(socket, kBacklog) != 0) {
    Fail(path);
  }
  return socket;
}

int NewSocket(const std::string& address, int port, const std::string& name) {
  addrinfo wanted{};
  wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &wanted, &found) != 0) {
    throw std::runtime_error(name + " is no address");
  }
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, freeaddrinfo);
  const int socket = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int one = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
  if (bind(socket, found->ai_addr, found->ai_addrlen) != 0 || listen(socket, kBacklog) != 0) {
    Fail(name);
  }
  return socket;
}

}  // namespace

Listening::Listening(const Settings& settings) {
  if (IsGivenBySystemd()) {
    socket_ = kFirstOfSystemd;
    name_ = "the socket that systemd gave";
  } else if (!settings.socket.empty()) {
    name_ = settings.socket;
    socket_ = NewUnixSocket(settings.socket);
    path_ = settings.socket;
  } else {
    name_ = "http://" +
            (settings.address.find(':') == std::string::npos ? settings.address
                                                             : "[" + settings.address + "]") +
            ":" + std::to_string(settings.port);
    socket_ = NewSocket(settings.address, settings.port, name_);
  }
  if (!settings.header.empty() && !IsUnixSocket(socket_)) {
    close(socket_);
    throw std::runtime_error(name_ + ": every account of this host can connect to it and name " +
                             "anybody in " + settings.header + "; with \"header\" of [sign-in] a " +
                             "unix socket is needed");
  }
}

Listening::~Listening() {
  close(socket_);
  if (!path_.empty()) {
    unlink(path_.c_str());
  }
}

}  // namespace mdomain_web
