#include "web/http/server.h"

#include <poll.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "web/http/connection.h"

namespace mdomain_web {

namespace {

constexpr int kLookEveryMilliseconds = 200;
constexpr std::string_view kForm = "application/x-www-form-urlencoded";
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
  const auto with_body = [this](const httplib::Request& head, httplib::Response& response,
                                const httplib::ContentReader& read) {
    httplib::Request request = head;
    if (_ReadBody(read, request, response)) {
      handler_(request, response);
    }
  };
  Get(kAnything, answer);
  Post(kAnything, with_body);
  Put(kAnything, with_body);
  Patch(kAnything, with_body);
  Delete(kAnything, answer);
  Delete(kAnything, with_body);
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
    response.headers.clear();  // the page that tells it has its own
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

// The parser would wait for the end of the connection where no length is named, take 8 KiB of a
// form and no more, and take any amount that comes in chunks or packed.
bool Server::_ReadBody(const httplib::ContentReader& read, httplib::Request& request,
                       httplib::Response& response) const {
  if (!request.has_header("Content-Length") && !request.has_header("Transfer-Encoding")) {
    return true;
  }
  if (request.is_multipart_form_data()) {
    response.status = 415;
    return false;
  }
  bool is_too_long = false;
  const bool is_read = read([&](const char* data, std::size_t size) {
    is_too_long = request.body.size() + size > limits_.body;
    if (!is_too_long) {
      request.body.append(data, size);
    }
    return !is_too_long;
  });
  if (!is_read) {
    response.status = is_too_long ? 413 : response.status >= 400 ? response.status : 400;
    return false;
  }
  if (request.get_header_value("Content-Type").compare(0, kForm.size(), kForm) == 0) {
    httplib::detail::parse_query_text(request.body, request.params);
  }
  return true;
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
