#include "lib-domain/sync/mail_target.h"

#include <algorithm>

#include "lib-domain/accounts/account_source.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "platform/include/host_settings.h"

namespace MDOMAIN::UTILS {

namespace {

// Without the domain of the account source, which stands before a name or behind it; other names
// that look alike are names of their own.
std::string ShortName(const std::string& name, const std::string& before,
                      const std::string& behind) {
  if (!before.empty() && name.size() > before.size() &&
      BASE::EqualsIgnoreCase(name.substr(0, before.size()), before)) {
    return name.substr(before.size());
  }
  if (!behind.empty() && name.size() > behind.size() &&
      BASE::EqualsIgnoreCase(name.substr(name.size() - behind.size()), behind)) {
    return name.substr(0, name.size() - behind.size());
  }
  return name;
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
  std::string domain;
  if (source == AUTH_LDAP && !DomainMailConfAccDomainNameGet(domain)) {
    LOG_ERROR("Failed to DomainMailConfAccDomainNameGet");
    return false;
  }
  behind_ = domain.empty() ? "" : "@" + domain;
  domain.clear();
  if (source == AUTH_WIN && !DomainMailConfWinDomainShortNameGet(domain)) {
    LOG_ERROR("Failed to DomainMailConfWinDomainShortNameGet");
    return false;
  }
  before_ = domain.empty() ? "" : domain + "\\";
  const korvmailserver::DeliverySettings& delivery = settings.delivery;
  is_lmtp_ = (source == AUTH_LOCAL ? delivery.local : delivery.directory) == "lmtp";
  is_short_ = !is_lmtp_ || delivery.lmtp_name == "short";
  return true;
}

std::string MailTarget::AddressOf(const std::string& user_name) const {
  const std::string name = is_short_ ? ShortName(user_name, before_, behind_) : user_name;
  return name.empty() ? "" : LocalPart(name) + "@" + (is_lmtp_ ? kLmtpDomain : "localhost");
}

std::string MailTarget::Text() const {
  return (is_lmtp_ ? is_short_ ? "lmtp-short" : "lmtp-full" : "local") + ("/" + before_ + behind_);
}

}  // namespace MDOMAIN::UTILS
