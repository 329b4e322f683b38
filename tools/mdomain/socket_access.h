// Whether a service that drops its rights, and may see a folder as the root, reaches a socket.
#ifndef TOOLS_MDOMAIN_SOCKET_ACCESS_H
#define TOOLS_MDOMAIN_SOCKET_ACCESS_H

#include <string>

namespace mdomain {

// `socket` is "unix:PATH" or "inet:HOST:PORT", as Postfix writes them. A path counts from `root`
// where that is not empty. `user` must have the right to every folder and to the socket, and
// somebody must listen there. False with the reason.
bool IsReachable(const std::string& socket, const std::string& root, const std::string& user,
                 std::string& why);

// Connects to a port of this host or another one, for at most `seconds`; -1 with errno set.
int ConnectTo(const std::string& host, const std::string& port, int seconds);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SOCKET_ACCESS_H
