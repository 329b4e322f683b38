// Where the mail of an account goes: an address that Postfix delivers, and no domain of ours.
#ifndef LIB_DOMAIN_SYNC_MAIL_TARGET_H
#define LIB_DOMAIN_SYNC_MAIL_TARGET_H

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// The domain of accounts that are delivered by LMTP: the transport table names it, nobody else.
constexpr const char* kLmtpDomain = "lmtp.localhost";

// For the account source in force, as [delivery] of the host settings says.
class MDOMAIN_EXPORT MailTarget {
 public:
  // False with a log line when settings cannot be read.
  bool Read();
  bool IsLmtp() const { return is_lmtp_; }
  // Whether accounts are named without the domain of their source.
  bool IsShort() const { return is_short_; }
  // By its short or its full name, as RFC 5321 writes it; empty for an account without a name.
  std::string AddressOf(const std::string& user_name) const;
  // A text that tells whether addresses are still the same.
  std::string Text() const;
  // What stands before or behind a short name: "DOMAIN\\", "@domain", or nothing.
  const std::string& Before() const { return before_; }
  const std::string& Behind() const { return behind_; }

 private:
  bool is_lmtp_ = false;
  bool is_short_ = true;
  std::string before_;  // what a short name is without
  std::string behind_;
};

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_MAIL_TARGET_H
