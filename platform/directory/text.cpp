#include "platform/directory/text.h"

#include <algorithm>
#include <vector>

#include "platform/directory/ldap_library.h"
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

namespace {

std::string Bytes(const berval& value) {
  return value.bv_val == nullptr ? std::string() : std::string(value.bv_val, value.bv_len);
}

// "attribute=value", the value as text that is folded and has its separators escaped.
std::string Folded(const LDAPAVA& part) {
  std::string text = FoldCase(Bytes(part.la_attr)) + "=";
  for (const char c : FoldCase(Bytes(part.la_value))) {
    if (c == ',' || c == '+' || c == '=' || c == '\\') {
      text += '\\';
    }
    text += c;
  }
  return text;
}

}  // namespace

// The library's own text of a DN has other letters than ASCII's escaped, and so out of any
// folding's reach.
std::string FoldDn(const std::string& dn) {
  LDAPDN parsed = nullptr;
  if (ldap_str2dn(dn.c_str(), &parsed, LDAP_DN_FORMAT_LDAPV3) != LDAP_SUCCESS) {
    return FoldCase(dn);
  }
  std::string folded;
  for (LDAPRDN* level = parsed; level != nullptr && *level != nullptr; level++) {
    std::vector<std::string> parts;
    for (LDAPAVA** part = *level; *part != nullptr; part++) {
      parts.push_back(Folded(**part));
    }
    std::sort(parts.begin(), parts.end());  // their order means nothing
    folded += level == parsed ? "" : ",";
    for (size_t i = 0; i < parts.size(); i++) {
      folded += (i == 0 ? "" : "+") + parts[i];
    }
  }
  ldap_dnfree(parsed);
  return folded;
}

}  // namespace korvmailserver::directory
