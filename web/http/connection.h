// A connection as the HTTP parser reads and writes it, with an end: a client that sends or takes
// its bytes one by one is cut off, however often it moves.
#ifndef MDOMAIN_WEB_HTTP_CONNECTION_H
#define MDOMAIN_WEB_HTTP_CONNECTION_H

#include <httplib.h>

#include <chrono>
#include <string>

namespace mdomain_web {

class Connection final : public httplib::Stream {
 public:
  using Clock = std::chrono::steady_clock;

  // Takes the socket, which is closed with the object. The time to receive begins now, the time to
  // send with the first byte: how long the answer is worked on does not count.
  Connection(int socket, std::chrono::seconds to_receive, std::chrono::seconds to_send);
  ~Connection() override;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Tells the other side that nothing follows, and waits a moment until it has read that: closing
  // at once would take back what it has not read.
  void Finish();

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* data, size_t size) override;
  ssize_t write(const char* data, size_t size) override;
  using httplib::Stream::write;
  void get_remote_ip_and_port(std::string& address, int& port) const override;
  void get_local_ip_and_port(std::string& address, int& port) const override;
  int socket() const override { return socket_; }

 private:
  // Whether the socket is ready for the events of poll() before the deadline.
  bool _Wait(short events, Clock::time_point deadline) const;

  int socket_;
  Clock::time_point receive_until_;
  std::chrono::seconds to_send_;
  Clock::time_point send_until_{};
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_HTTP_CONNECTION_H
