// A domain name in its two spellings. Internal to platform/eai.
#ifndef PLATFORM_EAI_DOMAIN_NAME_H
#define PLATFORM_EAI_DOMAIN_NAME_H

#include <optional>
#include <string>

namespace korvmailserver::eai {

struct DomainName {
  std::string ascii;    // A-labels, lower case
  std::string unicode;  // U-labels, lower case, NFC
};

// Both spellings of a valid domain, each of which gives the other again; nothing for an invalid
// one. IsValidEaiDomain has the rules.
std::optional<DomainName> ParseDomain(const std::string& text);

}  // namespace korvmailserver::eai

#endif  // PLATFORM_EAI_DOMAIN_NAME_H
