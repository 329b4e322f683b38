// The socket on which connections come: systemd's, a unix socket, or an address of loopback.
#ifndef MDOMAIN_WEB_HTTP_LISTENING_H
#define MDOMAIN_WEB_HTTP_LISTENING_H

#include <string>

#include "web/settings.h"

namespace mdomain_web {

class Listening final {
 public:
  // Throws std::runtime_error that names the socket and what was wrong. A unix socket that a
  // process left behind is replaced, one on which somebody listens is not. Where a header names who
  // is signed in, only a unix socket will do: its mode says who may connect.
  explicit Listening(const Settings& settings);
  ~Listening();
  Listening(const Listening&) = delete;
  Listening& operator=(const Listening&) = delete;

  int GetSocket() const { return socket_; }
  const std::string& GetName() const { return name_; }

 private:
  int socket_ = -1;
  std::string name_;
  std::string path_;  // to be removed at the end
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_HTTP_LISTENING_H
