// Whether a service that drops its rights, and may see a folder as the root, reaches a socket.
#ifndef TOOLS_MDOMAIN_SOCKET_ACCESS_H
#define TOOLS_MDOMAIN_SOCKET_ACCESS_H

#include <string>

namespace mdomain {

constexpr const char* kLmtpPort = "24";

// `socket` is "unix:PATH" or "inet:HOST:PORT", as Postfix writes them; LMTP's port where it has
// none. A path counts from `root`
// where that is not empty. `user` must have the right to every folder and to the socket, and
// somebody must listen there. False with the reason.
bool IsReachable(const std::string& socket, const std::string& root, const std::string& user,
                 std::string& why);

// "inet:HOST:PORT", "inet:[HOST]:PORT" or without "inet:", in its parts; `port` stays where there
// is none.
void SplitInetSocket(const std::string& socket, std::string& host, std::string& port);

// Whether the name or address is one of this machine. False with `is_known` false where nobody
// knows the name.
bool IsHostHere(const std::string& host, bool& is_known);

// Connects to such a socket; -1 with errno set.
int ConnectToSocket(const std::string& socket, const std::string& root);

// Connects to a port of this host or another one, for at most `seconds`; -1 with errno set.
int ConnectTo(const std::string& host, const std::string& port, int seconds);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SOCKET_ACCESS_H
