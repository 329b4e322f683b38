// Takes connections, reads one request from each within its limits, and sends the answer of one
// handler. Whoever stands in front (nginx, Caddy) keeps connections of its own open.
#ifndef MDOMAIN_WEB_HTTP_SERVER_H
#define MDOMAIN_WEB_HTTP_SERVER_H

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace mdomain_web {

struct Limits {
  std::size_t target = 2048;            // bytes of path and query
  std::size_t body = 1024 * 1024;       // bytes; a longer one is 413
  std::chrono::seconds to_receive{15};  // for the whole request
  std::chrono::seconds to_send{60};     // for the whole answer
  // Of a crowd all but a few wait for the library, which serves one at a time: whoever needs
  // nothing of it, for a file or to sign in, finds a thread all the same.
  std::size_t threads = 256;
  std::size_t waiting = 64;  // connections that no thread has taken yet; more are closed
};

class Server final : private httplib::Server {
 public:
  // Fills in the answer. Called by several threads at once; an exception is answered with 500.
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  Server(const Limits& limits, Handler handler);

  // Takes connections from the listening socket until Stop, then ends those that it has.
  void Run(int listening_socket);
  // May be called within a signal handler.
  void Stop() { stopped_ = true; }

 private:
  // The body of `request`, and the fields of a form; false with the status when there is none to
  // take.
  bool _ReadBody(const httplib::ContentReader& read, httplib::Request& request,
                 httplib::Response& response) const;
  void _Work();
  void _Serve(int socket);

  const Limits limits_;
  const Handler handler_;
  std::atomic<bool> stopped_{false};
  std::mutex mutex_;
  std::condition_variable has_work_;
  std::deque<int> waiting_;
  bool is_ending_ = false;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_HTTP_SERVER_H
