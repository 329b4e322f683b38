// Asks a mail server on this host which recipients it takes, and sends nothing.
#ifndef TOOLS_MDOMAIN_SMTP_PROBE_H
#define TOOLS_MDOMAIN_SMTP_PROBE_H

#include <string>

namespace mdomain {

// The answer for an address beyond ASCII where the server has none.
constexpr const char* kNoSmtpUtf8 = "501 the server does not offer SMTPUTF8";

class SmtpProbe {
 public:
  explicit SmtpProbe(int port) : port_(port) {}
  ~SmtpProbe();
  SmtpProbe(const SmtpProbe&) = delete;
  SmtpProbe& operator=(const SmtpProbe&) = delete;

  // Throws a Failure when nobody answers there.
  void Connect();
  // The answer to a recipient, or to what comes before it where that is refused: "250 2.1.5 Ok". An
  // address beyond ASCII is asked with SMTPUTF8. Throws a Failure when the connection is lost
  // twice.
  std::string Ask(const std::string& address);

  // Whether the LMTP server behind a connection, which is closed, offers SMTPUTF8; false for none.
  static bool OffersUtf8ByLmtp(int fd);

 private:
  std::string _AskOnce(const std::string& address);
  std::string _Begin(bool is_utf8);
  std::string _Command(const std::string& line);
  std::string _ReadReply();
  bool _ReadLine(std::string& line);
  void _Close();

  int port_;
  int fd_ = -1;
  std::string unread_;
  bool has_utf8_ = false;
  bool is_begun_ = false;
  bool is_begun_utf8_ = false;
  int recipients_ = 0;  // of the message that was begun
  int resets_ = 0;      // of this connection
  int refusals_ = 0;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SMTP_PROBE_H
