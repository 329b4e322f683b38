#include "tools/mdomain/socket_access.h"

#include <grp.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

namespace mdomain {
namespace {

namespace fs = std::filesystem;

constexpr int kSeconds = 10;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// Nothing where the name is not known.
AddressList FindAddresses(const std::string& host, const std::string& port) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const char* const service = port.empty() ? nullptr : port.c_str();
  if (getaddrinfo(host.c_str(), service, &wanted, &list) != 0) {
    list = nullptr;
  }
  return AddressList(list, freeaddrinfo);
}

struct Rights {
  uid_t uid = 0;
  std::vector<gid_t> gids;
};

bool RightsOf(const std::string& user, Rights& rights) {
  const passwd* account = getpwnam(user.c_str());
  if (account == nullptr) {
    return false;
  }
  int count = 256;
  rights.uid = account->pw_uid;
  rights.gids.resize(count);
  if (getgrouplist(user.c_str(), account->pw_gid, rights.gids.data(), &count) < 0) {
    return false;
  }
  rights.gids.resize(count);
  return true;
}

// `bit` is 1 to go through a folder, 2 to write to a socket.
bool IsAllowed(const struct stat& entry, const Rights& rights, unsigned bit) {
  const bool is_own = entry.st_uid == rights.uid;
  const bool is_in_group =
      std::find(rights.gids.begin(), rights.gids.end(), entry.st_gid) != rights.gids.end();
  const unsigned shift = is_own ? 6 : is_in_group ? 3 : 0;
  return rights.uid == 0 || (entry.st_mode >> shift & bit) != 0;
}

bool MayOpen(const fs::path& path, const std::string& user, std::string& why) {
  Rights rights;
  if (!RightsOf(user, rights)) {
    why = "there is no account " + user;
    return false;
  }
  fs::path place;
  for (const fs::path& part : path) {
    struct stat entry {};
    place /= part;
    if (stat(place.c_str(), &entry) != 0) {
      why = place.string() + ": " + strerror(errno);
      return false;
    }
    if (!IsAllowed(entry, rights, S_ISDIR(entry.st_mode) ? 1 : 2)) {
      why = user + " has no right to " + place.string();
      return false;
    }
  }
  return true;
}

// Waits so long for an answer, or to be taken.
void SetLimit(int fd, int seconds) {
  const timeval limit{seconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

void CloseKeepingErrno(int fd) {
  const int error = errno;
  close(fd);
  errno = error;
}

int ConnectToPath(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  SetLimit(fd, kSeconds);
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
    return fd;
  }
  CloseKeepingErrno(fd);
  return -1;
}

bool IsUnix(const std::string& socket) {
  return socket.rfind("unix:", 0) == 0;
}

fs::path PathOf(const std::string& socket, const std::string& root) {
  const std::string place = socket.substr(socket.find(':') + 1);
  return fs::path(root.empty() ? place : root + "/" + place).lexically_normal();
}

}  // namespace

void SplitInetSocket(const std::string& socket, std::string& host, std::string& port) {
  host = socket.rfind("inet:", 0) == 0 ? socket.substr(socket.find(':') + 1) : socket;
  const size_t colon = host.rfind(':');
  const bool has_port = colon != std::string::npos && host.find(']', colon) == std::string::npos;
  if (has_port) {
    port = host.substr(colon + 1);
    host.erase(colon);
  }
  if (host.size() > 1 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
}

// What can be bound is ours.
bool IsHostHere(const std::string& host, bool& is_known) {
  const AddressList addresses = FindAddresses(host, "");
  is_known = addresses != nullptr;
  bool is_here = false;
  for (const addrinfo* one = addresses.get(); one != nullptr && !is_here; one = one->ai_next) {
    const int fd = socket(one->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    is_here = fd >= 0 && bind(fd, one->ai_addr, one->ai_addrlen) == 0;
    close(fd);
  }
  return is_here;
}

int ConnectTo(const std::string& host, const std::string& port, int seconds) {
  const AddressList addresses = FindAddresses(host, port);
  if (addresses == nullptr) {
    errno = EADDRNOTAVAIL;
    return -1;
  }
  for (const addrinfo* one = addresses.get(); one != nullptr; one = one->ai_next) {
    const int fd = socket(one->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    SetLimit(fd, seconds);
    if (connect(fd, one->ai_addr, one->ai_addrlen) == 0) {
      return fd;
    }
    CloseKeepingErrno(fd);
  }
  return -1;
}

int ConnectToSocket(const std::string& socket, const std::string& root) {
  if (IsUnix(socket)) {
    return ConnectToPath(PathOf(socket, root));
  }
  std::string host;
  std::string port = kLmtpPort;
  SplitInetSocket(socket, host, port);
  return ConnectTo(host, port, kSeconds);
}

bool IsReachable(const std::string& socket, const std::string& root, const std::string& user,
                 std::string& why) {
  const fs::path path = PathOf(socket, root);
  bool is_reachable = !IsUnix(socket) || MayOpen(path, user, why);
  if (is_reachable) {
    const int fd = ConnectToSocket(socket, root);
    is_reachable = fd >= 0;
    why = is_reachable ? "" : (IsUnix(socket) ? path.string() + ": " : "") + strerror(errno);
    close(fd);
  }
  if (!is_reachable && IsUnix(socket) && !root.empty()) {
    why += " (Postfix sees " + root + " as the root)";
  }
  return is_reachable;
}

}  // namespace mdomain
