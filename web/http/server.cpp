#include "web/http/server.h"

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <utility>

#include "web/http/connection.h"

namespace mdomain_web {

namespace {

constexpr int kLookEveryMilliseconds = 200;
constexpr const char* kAnything = R"([\s\S]*)";

}  // namespace

// The parser's own routes are not used: its patterns are matched recursively, byte by byte.
Server::Server(const Limits& limits, Handler handler)
    : limits_(limits), handler_(std::move(handler)) {
  set_payload_max_length(limits_.body);
  set_keep_alive_max_count(1);
  set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    if (request.target.size() <= limits_.target) {
      return HandlerResponse::Unhandled;
    }
    response.status = 414;
    return HandlerResponse::Handled;
  });
  const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
    handler_(request, response);
  };
  Get(kAnything, answer);
  Post(kAnything, answer);
  Put(kAnything, answer);
  Patch(kAnything, answer);
  Delete(kAnything, answer);
  set_exception_handler([](const auto& request, auto& response, std::exception_ptr thrown) {
    std::string text = "an unknown exception";
    try {
      std::rethrow_exception(std::move(thrown));
    } catch (const std::exception& error) {
      text = error.what();
    } catch (...) {
    }
    syslog(LOG_MAIL | LOG_ERR, "%s %s failed: %s", request.method.c_str(), request.path.c_str(),
           text.c_str());
    response.status = 500;
  });
  // Whatever the handler did not answer has no body yet: bad requests and limits.
  set_error_handler(
      HandlerWithResponse([this](const httplib::Request& request, httplib::Response& response) {
        if (response.body.empty() && response.status >= 400) {
          handler_(request, response);
        }
        return HandlerResponse::Handled;
      }));
}

void Server::Run(int listening_socket) {
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < limits_.threads; ++i) {
    threads.emplace_back([this] { _Work(); });
  }
  while (!stopped_) {
    pollfd asked{listening_socket, POLLIN, 0};
    if (poll(&asked, 1, kLookEveryMilliseconds) <= 0) {
      continue;
    }
    const int socket = accept4(listening_socket, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
      // Out of descriptors: those in use come back.
      std::this_thread::sleep_for(std::chrono::milliseconds(kLookEveryMilliseconds));
      continue;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.size() >= limits_.waiting) {
      close(socket);
      continue;
    }
    waiting_.push_back(socket);
    has_work_.notify_one();
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_ending_ = true;
    has_work_.notify_all();
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

void Server::_Work() {
  for (;;) {
    int socket = -1;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      has_work_.wait(lock, [this] { return is_ending_ || !waiting_.empty(); });
      if (waiting_.empty()) {
        return;
      }
      socket = waiting_.front();
      waiting_.pop_front();
    }
    _Serve(socket);
  }
}

void Server::_Serve(int socket) {
  Connection connection(socket, limits_.to_receive, limits_.to_send);
  bool is_closed = false;
  process_request(connection, true, is_closed, nullptr);
  connection.Finish();
}

}  // namespace mdomain_web
