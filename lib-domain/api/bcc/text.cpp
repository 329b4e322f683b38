// Texts as rule files and maps want them: spellings of domains, fields of a line.
#include "lib-domain/api/bcc/text.h"

#include <algorithm>

#include "platform/include/eai.h"
#include "platform/include/text.h"

namespace MDOMAIN::API::INTERNAL {

bool HasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c != '\t' && korvmailserver::IsControlCharacter(c); });
}

bool StandsInLine(const std::string& text) {
  return !text.empty() && text.find_first_of(" \t") == std::string::npos && !HasControl(text);
}

bool StandsAtLineBegin(const std::string& text) {
  return StandsInLine(text) && text.front() != '#' && text.rfind(kByteOrderMark, 0) != 0;
}

bool IsAccountWithBlank(const std::string& text) {
  return text.find(' ') != std::string::npos && text.front() != ' ' && text.back() != ' ' &&
         text.find_first_of("\t\"@") == std::string::npos && !HasControl(text);
}

bool SplitAddress(const std::string& text, std::string& local_part, std::string& domain) {
  const size_t at = text.rfind('@');
  if (at == std::string::npos) {
    return false;
  }
  // `text` may be one of the two.
  std::string after = text.substr(at + 1);
  local_part = text.substr(0, at);
  domain = std::move(after);
  return true;
}

const DomainForms& DomainFormCache::Get(const std::string& domain) {
  const auto [place, is_new] = forms_.try_emplace(domain);
  DomainForms& forms = place->second;
  if (!is_new) {
    return forms;
  }
  forms.punycode = forms.utf8 = domain;
  forms.spellings = {domain};
  std::string punycode;
  std::string utf8;
  if (KORV::POSTARA_SERVER::ConvertToPunycode(domain, punycode) != 0) {
    return forms;
  }
  forms.convertible = true;
  forms.punycode = punycode;
  forms.utf8 = KORV::POSTARA_SERVER::ConvertToUTF8(punycode, utf8) == 0 ? utf8 : punycode;
  forms.spellings = {domain == punycode ? punycode : forms.utf8};
  if (forms.utf8 != punycode) {
    forms.spellings.push_back(domain == punycode ? forms.utf8 : punycode);
  }
  return forms;
}

}  // namespace MDOMAIN::API::INTERNAL
