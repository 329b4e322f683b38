// A deadline for making a connection, the TLS handshake included.
//
// The library's own timeouts do not cover the handshake: with a server that accepts the connection
// and then says nothing it reads in a loop, without end and without waiting. A layer between the
// socket and TLS waits here instead, and fails at the deadline.
#ifndef PLATFORM_DIRECTORY_CONNECT_DEADLINE_H
#define PLATFORM_DIRECTORY_CONNECT_DEADLINE_H

#include <ldap.h>

#include <chrono>

namespace korvmailserver::directory {

class ConnectDeadline {
 public:
  ConnectDeadline() = default;
  ConnectDeadline(const ConnectDeadline&) = delete;
  ConnectDeadline& operator=(const ConnectDeadline&) = delete;

  // Watches over connections that `ldap` makes. This object must live longer than `ldap`. False
  // when the library refuses.
  bool Attach(LDAP* ldap);
  // From now on until Disarm, at most `seconds` in all.
  void Arm(int seconds);
  // Afterwards the layer only passes on.
  void Disarm() { armed_ = false; }

  // Waits until the socket has one of `events`. False, with errno ETIMEDOUT, at the deadline.
  bool Wait(Sockbuf* buffer, short events) const;

 private:
  ldap_conncb callback_ = {};
  bool armed_ = false;
  std::chrono::steady_clock::time_point end_;
};

}  // namespace korvmailserver::directory

#endif  // PLATFORM_DIRECTORY_CONNECT_DEADLINE_H
