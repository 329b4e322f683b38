#include "tools/mdomain/smtp_probe.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/include/text.h"
#include "tools/mdomain/socket_access.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

constexpr int kSeconds = 60;  // one answer
// Postfix slows down and hangs up on clients with many errors, or many RSETs (junk commands), and
// takes so many recipients of a message.
constexpr int kMostRefusals = 8;
constexpr int kMostResets = 80;
constexpr int kMostRecipients = 50;

bool IsTaken(const std::string& reply) {
  return !reply.empty() && reply[0] == '2';
}

}  // namespace

SmtpProbe::~SmtpProbe() {
  _Close();
}

void SmtpProbe::_Close() {
  if (fd_ >= 0) {
    close(fd_);
  }
  fd_ = -1;
  unread_.clear();
  is_begun_ = false;
  recipients_ = resets_ = refusals_ = 0;
}

void SmtpProbe::Connect() {
  _Close();
  fd_ = ConnectTo("127.0.0.1", std::to_string(port_), kSeconds);
  const std::string place = "127.0.0.1 port " + std::to_string(port_);
  if (fd_ < 0) {
    throw Failure(kFailed, "no mail server listens on " + place + " (" + strerror(errno) +
                               "): does Postfix run? postfix start");
  }
  std::string greeting = _ReadReply();
  if (IsTaken(greeting)) {
    greeting = _Command("EHLO localhost");
  }
  if (!IsTaken(greeting)) {
    throw Failure(kFailed, "the mail server on " + place + " does not take us: " +
                               (greeting.empty() ? "it hangs up" : greeting));
  }
}

bool SmtpProbe::OffersUtf8ByLmtp(int fd) {
  SmtpProbe probe(0);
  probe.fd_ = fd;
  return fd >= 0 && IsTaken(probe._ReadReply()) && IsTaken(probe._Command("LHLO localhost")) &&
         probe.has_utf8_;
}

std::string SmtpProbe::Ask(const std::string& address) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (fd_ < 0 || refusals_ >= kMostRefusals || resets_ >= kMostResets) {
      Connect();
    }
    std::string reply = _AskOnce(address);
    if (!reply.empty() && reply.rfind("421", 0) != 0) {
      return reply;
    }
    _Close();
  }
  throw Failure(kFailed, "the mail server hangs up when it is asked for " + address);
}

std::string SmtpProbe::_AskOnce(const std::string& address) {
  const bool is_utf8 = korvmailserver::HasNonAscii(address);
  if (is_begun_ && (is_utf8 != is_begun_utf8_ || recipients_ >= kMostRecipients)) {
    is_begun_ = false;
    ++resets_;
    if (!IsTaken(_Command("RSET"))) {
      return "";
    }
  }
  if (!is_begun_) {
    std::string reply = _Begin(is_utf8);
    if (!IsTaken(reply)) {
      return reply;
    }
  }
  std::string reply = _Command("RCPT TO:<" + address + ">");
  ++(IsTaken(reply) ? recipients_ : refusals_);
  return reply;
}

std::string SmtpProbe::_Begin(bool is_utf8) {
  if (is_utf8 && !has_utf8_) {
    return kNoSmtpUtf8;
  }
  std::string reply = _Command(is_utf8 ? "MAIL FROM:<> SMTPUTF8" : "MAIL FROM:<>");
  is_begun_ = IsTaken(reply);
  is_begun_utf8_ = is_utf8;
  recipients_ = 0;
  refusals_ += is_begun_ ? 0 : 1;
  return reply;
}

std::string SmtpProbe::_Command(const std::string& line) {
  const std::string bytes = line + "\r\n";
  const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  return sent == static_cast<ssize_t>(bytes.size()) ? _ReadReply() : "";
}

// The last line of the answer; empty when the connection is lost.
std::string SmtpProbe::_ReadReply() {
  std::string line;
  while (_ReadLine(line)) {
    has_utf8_ = has_utf8_ || line.compare(0, 12, "250-SMTPUTF8") == 0 || line == "250 SMTPUTF8";
    if (line.size() < 4 || line[3] != '-') {
      return line;
    }
  }
  return "";
}

bool SmtpProbe::_ReadLine(std::string& line) {
  size_t end = 0;
  while ((end = unread_.find('\n')) == std::string::npos) {
    char part[4096];
    const ssize_t count = recv(fd_, part, sizeof(part), 0);
    if (count <= 0) {
      return false;
    }
    unread_.append(part, static_cast<size_t>(count));
  }
  line = unread_.substr(0, end);
  unread_.erase(0, end + 1);
  line.erase(line.find_last_not_of('\r') + 1);
  return true;
}

}  // namespace mdomain
