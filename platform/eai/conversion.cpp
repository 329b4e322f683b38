// The two spellings of domains and of the domain part of addresses.
#include <optional>
#include <string>

#include "platform/eai/domain_name.h"
#include "platform/include/eai.h"
#include "platform/include/text.h"

namespace {

using korvmailserver::HasNonAscii;
using korvmailserver::eai::DomainName;
using korvmailserver::eai::ParseDomain;

// Where the domain begins: after the last "@", or at the start of a text without one.
size_t DomainBegin(const std::string& text) {
  const size_t at = text.rfind('@');
  return at == std::string::npos ? 0 : at + 1;
}

int Convert(const std::string& text, std::string DomainName::*spelling, std::string& out) {
  const size_t begin = DomainBegin(text);
  const std::optional<DomainName> domain = ParseDomain(text.substr(begin));
  if (!domain) {
    return -1;
  }
  out = text.substr(0, begin) + (*domain).*spelling;
  return 0;
}

}  // namespace

namespace korvmailserver {
namespace utils {

bool Equals(const std::string& a, const std::string& b, bool ignore_case) {
  return ignore_case ? EqualsIgnoreAsciiCase(a, b) : a == b;
}

}  // namespace utils
}  // namespace korvmailserver

namespace KORV {
namespace POSTARA_SERVER {

bool IsValidEaiDomain(const std::string& domain) {
  const std::optional<DomainName> parsed = ParseDomain(domain);
  return parsed && (korvmailserver::utils::Equals(domain, parsed->ascii, true) ||
                    korvmailserver::utils::Equals(domain, parsed->unicode, true));
}

int ConvertToPunycode(const std::string& text, std::string& out) {
  return Convert(text, &DomainName::ascii, out);
}

int ConvertToUTF8(const std::string& text, std::string& out) {
  return Convert(text, &DomainName::unicode, out);
}

int ConvertToPunycodeOrUTF8(const std::string& text, std::string& out) {
  const bool is_unicode = HasNonAscii(text.substr(DomainBegin(text)));
  return is_unicode ? ConvertToPunycode(text, out) : ConvertToUTF8(text, out);
}

}  // namespace POSTARA_SERVER
}  // namespace KORV
