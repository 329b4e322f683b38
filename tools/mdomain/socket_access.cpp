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

bool IsAnswered(const std::string& path, std::string& why) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const bool is_answered =
      path.size() < sizeof(address.sun_path) && fd >= 0 &&
      connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  if (!is_answered) {
    why = path + ": " + strerror(errno);
  }
  close(fd);
  return is_answered;
}

}  // namespace

int ConnectTo(const std::string& host, const std::string& port, int seconds) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), &wanted, &list) != 0) {
    errno = EADDRNOTAVAIL;
    return -1;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(list, freeaddrinfo);
  const timeval limit{seconds, 0};
  for (const addrinfo* one = list; one != nullptr; one = one->ai_next) {
    const int fd = socket(one->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connect(fd, one->ai_addr, one->ai_addrlen) == 0) {
      return fd;
    }
    const int error = errno;
    close(fd);
    errno = error;
  }
  return -1;
}

bool IsReachable(const std::string& socket, const std::string& root, const std::string& user,
                 std::string& why) {
  const std::string place = socket.substr(socket.find(':') + 1);
  if (socket.rfind("inet:", 0) == 0) {
    const size_t colon = place.rfind(':');
    const int fd = ConnectTo(place.substr(0, colon), place.substr(colon + 1), kSeconds);
    if (fd < 0) {
      why = strerror(errno);
      return false;
    }
    close(fd);
    return true;
  }
  const std::string path = root.empty() ? place : root + "/" + place;
  const fs::path normal = fs::path(path).lexically_normal();
  const bool is_reachable = MayOpen(normal, user, why) && IsAnswered(normal, why);
  if (!is_reachable && !root.empty()) {
    why += " (Postfix sees " + root + " as the root)";
  }
  return is_reachable;
}

}  // namespace mdomain
