#include "lib-domain/api/disclaimer/condition.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "lib-domain/base/text.h"
#include "platform/include/eai.h"
#include "platform/include/text.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

using korvmailserver::HasNonAscii;

constexpr std::string_view kRegexSpecial = "/@.^$+?()[{|";

const char* VariableName(RuleTarget target) {
  return target == RuleTarget::kSender ? "$Sender" : "$Recipient";
}

// A domain in which labels may hold "*". Labels without one are converted; one that mixes "*" with
// non-ASCII letters has no A-label form.
bool DomainPatternToPunycode(const std::string& pattern, std::string& out) {
  std::string result;
  size_t begin = 0;
  while (begin <= pattern.size()) {
    const size_t dot = std::min(pattern.find('.', begin), pattern.size());
    std::string label = pattern.substr(begin, dot - begin);
    if (HasNonAscii(label) && (label.find('*') != std::string::npos ||
                               KORV::POSTARA_SERVER::ConvertToPunycode(label, label) < 0)) {
      return false;
    }
    result += label;
    if (dot < pattern.size()) {
      result += '.';
    }
    begin = dot + 1;
  }
  out = result;
  return true;
}

bool PatternToPunycode(const std::string& pattern, std::string& out) {
  if (!HasNonAscii(pattern)) {
    out = pattern;
    return true;
  }
  const size_t at = pattern.rfind('@');
  if (at == std::string::npos) {
    return DomainPatternToPunycode(pattern, out);
  }
  std::string domain;
  // A local part of letters outside ASCII stays as it is; it must still be UTF-8, else no address
  // could ever match and the text would not be what was typed.
  if (!DomainPatternToPunycode(pattern.substr(at + 1), domain)) {
    return false;
  }
  std::string local = pattern.substr(0, at);
  std::replace(local.begin(), local.end(), '*', 'a');
  if (HasNonAscii(local) && KORV::POSTARA_SERVER::StripInvalidEaiChars(local) != local) {
    return false;
  }
  out = pattern.substr(0, at + 1) + domain;
  return true;
}

}  // namespace

std::string EscapePerlString(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (korvmailserver::IsControlCharacter(c)) {
      char hex[8];
      (void)snprintf(hex, sizeof(hex), "\\x{%02x}", static_cast<unsigned char>(c));
      escaped += hex;
      continue;
    }
    if (c == '\\' || c == '"' || c == '$' || c == '@') {
      escaped += '\\';
    }
    escaped += c;
  }
  return escaped;
}

bool EmailTest(RuleTarget target, const std::string& pattern, std::string& test) {
  std::string address;
  if (pattern.empty() || pattern.find('\\') != std::string::npos ||
      korvmailserver::HasControlCharacter(pattern) || !PatternToPunycode(pattern, address)) {
    return false;
  }
  std::string regex;
  bool after_star = false;
  for (const char c : address) {
    if (c == '*') {
      regex += after_star ? "" : ".*";  // a run means what one means, and would only backtrack more
      after_star = true;
      continue;
    }
    after_star = false;
    if (kRegexSpecial.find(c) != std::string_view::npos) {
      regex += '\\';
    }
    regex += c;
  }
  test = std::string("(") + VariableName(target) + " =~ /^" + regex + "$/i)";
  return true;
}

bool UserTest(RuleTarget target, const std::vector<std::string>& aliases, std::string& test) {
  if (aliases.empty()) {
    return false;
  }
  const std::string variable = VariableName(target);
  std::vector<std::string> comparisons;
  comparisons.reserve(aliases.size());
  for (const std::string& alias : aliases) {
    comparisons.push_back("lc " + variable + "Name eq lc \"" + EscapePerlString(alias) + "\"");
  }
  test = "(exists($all_domain_map{lc " + variable + "Domain}) && (" +
         BASE::Join(comparisons, " || ") + "))";
  return true;
}

std::string GroupTest(RuleTarget target, unsigned int gid) {
  const std::string variable = VariableName(target);
  return "(exists($all_domain_map{lc " + variable + "Domain}) && exists($gid_username_map{" +
         std::to_string(gid) + "}{lc " + variable + "Name}))";
}

bool JoinTests(const std::string& op, const std::vector<std::string>& matches,
               const std::vector<std::string>& exceptions, std::string& condition) {
  if (op != "and" && op != "or") {
    return false;
  }
  condition = "(" + BASE::Join(matches, op == "and" ? " && " : " || ") + ")";
  if (!exceptions.empty()) {
    condition += " && !(" + BASE::Join(exceptions, " || ") + ")";
  }
  return true;
}

}  // namespace MDOMAIN::API::INTERNAL
