#include "lib-domain/sync/mail_target.h"

#include <algorithm>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "platform/include/host_settings.h"

namespace MDOMAIN::UTILS {

namespace {

// A full name is DOMAIN\name or name@domain.
std::string ShortName(const std::string& name) {
  const size_t domain = name.find('\\');
  return domain != std::string::npos ? name.substr(domain + 1) : name.substr(0, name.rfind('@'));
}

// RFC 5322's atext, and what RFC 6532 adds to it.
bool IsAtomText(char c) {
  const auto byte = static_cast<unsigned char>(c);
  const bool is_letter_or_digit =
      (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return is_letter_or_digit || byte >= 0x80 ||
         std::string("!#$%&'*+-/=?^_`{|}~").find(c) != std::string::npos;
}

bool IsDotAtom(const std::string& text) {
  return text.front() != '.' && text.back() != '.' && text.find("..") == std::string::npos &&
         std::all_of(text.begin(), text.end(), [](char c) { return c == '.' || IsAtomText(c); });
}

std::string LocalPart(const std::string& name) {
  if (IsDotAtom(name)) {
    return name;
  }
  std::string quoted = "\"";
  for (const char c : name) {
    quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  }
  return quoted + '"';
}

}  // namespace

bool MailTarget::Read() {
  korvmailserver::HostSettings settings;
  std::string error;
  AUTH_TYPE source = AUTH_UNKNOWN;
  if (!korvmailserver::ReadHostSettings(settings, error)) {
    LOG_ERROR("Failed to read the host settings: %s", error.c_str());
    return false;
  }
  if (!DomainMailConfCurrentAuthTypeGet(source)) {
    LOG_ERROR("Failed to DomainMailConfCurrentAuthTypeGet");
    return false;
  }
  const korvmailserver::DeliverySettings& delivery = settings.delivery;
  is_lmtp_ = (source == AUTH_LOCAL ? delivery.local : delivery.directory) == "lmtp";
  is_short_ = !is_lmtp_ || delivery.lmtp_name == "short";
  return true;
}

std::string MailTarget::AddressOf(const std::string& user_name) const {
  const std::string name = is_short_ ? ShortName(user_name) : user_name;
  return name.empty() ? "" : LocalPart(name) + "@" + (is_lmtp_ ? kLmtpDomain : "localhost");
}

std::string MailTarget::Text() const {
  return is_lmtp_ ? is_short_ ? "lmtp-short" : "lmtp-full" : "local";
}

}  // namespace MDOMAIN::UTILS
