#include "platform/directory/text.h"

#include <ldap.h>

#include <algorithm>

#include "platform/include/ldap_search.h"
#include "platform/include/text.h"
#include "platform/system/fold_case.h"

namespace korvmailserver {

namespace {

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsAttributeByte(char c) {
  return IsLetter(c) || (c >= '0' && c <= '9') || c == '-' || c == ';';
}

}  // namespace

bool IsAttributeName(const std::string& name) {
  return !name.empty() && IsLetter(name[0]) &&
         std::all_of(name.begin(), name.end(), IsAttributeByte);
}

}  // namespace korvmailserver

namespace korvmailserver::directory {

bool IsText(const std::string& value) {
  return IsValidUtf8(value) && value.find('\0') == std::string::npos;
}

std::string Equals(const std::string& attribute, const std::string& value) {
  constexpr const char* kHex = "0123456789abcdef";
  std::string filter = "(" + attribute + "=";
  for (char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7F || c == '*' || c == '(' || c == ')' || c == '\\') {
      filter += '\\';
      filter += kHex[byte >> 4U];
      filter += kHex[byte & 0xFU];
    } else {
      filter += c;
    }
  }
  return filter + ")";
}

std::string Both(const std::string& filter, const std::string& other) {
  const bool bracketed = !filter.empty() && filter[0] == '(';
  return "(&" + (bracketed ? filter : "(" + filter + ")") + other + ")";
}

std::string FoldDn(const std::string& dn) {
  LDAPDN parsed = nullptr;
  if (ldap_str2dn(dn.c_str(), &parsed, LDAP_DN_FORMAT_LDAPV3) != LDAP_SUCCESS) {
    return FoldCase(dn);
  }
  char* text = nullptr;
  const int code = ldap_dn2str(parsed, &text, LDAP_DN_FORMAT_LDAPV3);
  std::string folded = FoldCase(code == LDAP_SUCCESS ? text : dn);
  ldap_memfree(text);
  ldap_dnfree(parsed);
  return folded;
}

}  // namespace korvmailserver::directory
