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

// Stars that may all be tried: an address has 320 letters at most.
constexpr size_t kHarmlessStars = 2;

const char* VariableName(RuleTarget target) {
  return target == RuleTarget::kSender ? "$Sender" : "$Recipient";
}

using LabelConversion = int (*)(const std::string&, std::string&);

// A domain in which labels may hold "*". Labels without one are converted; one that mixes "*" with
// non-ASCII letters has no A-label form.
bool ConvertDomainPattern(const std::string& pattern, LabelConversion convert, std::string& out) {
  std::string result;
  size_t begin = 0;
  while (begin <= pattern.size()) {
    const size_t dot = std::min(pattern.find('.', begin), pattern.size());
    std::string label = pattern.substr(begin, dot - begin);
    const bool has_star = label.find('*') != std::string::npos;
    if (HasNonAscii(label) && (has_star || convert(label, label) < 0)) {
      return false;
    }
    if (!has_star && BASE::ToLowerAscii(label).compare(0, 4, "xn--") == 0) {
      convert(label, label);  // one that is no A-label is compared as it stands
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

// The pattern with its domain in A-labels and in U-labels. An internationalised message has either
// in its envelope. Letters outside ASCII in the local part stay as they are; it must still be
// UTF-8, else no address could ever match and the text would not be what was typed.
bool PatternForms(const std::string& pattern, std::string& ascii, std::string& utf8) {
  const size_t at = pattern.rfind('@');
  const size_t begin = at == std::string::npos ? 0 : at + 1;
  const std::string domain = pattern.substr(begin);
  std::string local = pattern.substr(0, begin == 0 ? 0 : at);
  if (!ConvertDomainPattern(domain, KORV::POSTARA_SERVER::ConvertToPunycode, ascii) ||
      !ConvertDomainPattern(domain, KORV::POSTARA_SERVER::ConvertToUTF8, utf8)) {
    return false;
  }
  std::replace(local.begin(), local.end(), '*', 'a');
  if (HasNonAscii(local) && KORV::POSTARA_SERVER::StripInvalidEaiChars(local) != local) {
    return false;
  }
  ascii.insert(0, pattern, 0, begin);
  utf8.insert(0, pattern, 0, begin);
  return true;
}

std::string EscapeRegex(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (kRegexSpecial.find(c) != std::string_view::npos) {
      escaped += '\\';
    }
    escaped += c;
  }
  return escaped;
}

// What stands before, between and behind the stars; several in a row are one.
std::vector<std::string> SplitAtStars(const std::string& glob) {
  std::vector<std::string> pieces;
  size_t begin = 0;
  for (size_t star = 0; (star = glob.find('*', begin)) != std::string::npos; begin = star + 1) {
    if (star > begin || pieces.empty()) {
      pieces.push_back(glob.substr(begin, star - begin));
    }
  }
  pieces.push_back(glob.substr(begin));
  return pieces;
}

// A text with "*" as a regular expression. Many stars written as ".*" would try every way to divide
// the address among them, for minutes. What stands between two stars fits best where it fits first,
// so each such piece is looked for once and kept; only the last star may move.
std::string GlobToRegex(const std::string& glob) {
  const std::vector<std::string> pieces = SplitAtStars(glob);
  const bool has_many = pieces.size() > kHarmlessStars + 1;
  std::string regex = EscapeRegex(pieces.front());
  for (size_t i = 1; i < pieces.size(); ++i) {
    const std::string piece = EscapeRegex(pieces[i]);
    const bool is_kept = has_many && i + 1 < pieces.size();
    regex += is_kept ? "(?>.*?" + piece + ")" : ".*" + piece;
  }
  return regex;
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

bool EmailGlobs(const std::string& pattern, std::string& ascii, std::string& utf8) {
  return !pattern.empty() && pattern.find('\\') == std::string::npos &&
         !korvmailserver::HasControlCharacter(pattern) && PatternForms(pattern, ascii, utf8);
}

bool EmailTest(RuleTarget target, const std::string& pattern, std::string& test) {
  std::string ascii;
  std::string utf8;
  if (!EmailGlobs(pattern, ascii, utf8)) {
    return false;
  }
  const std::string begin = std::string("(") + VariableName(target) + " =~ /^";
  test = begin + GlobToRegex(ascii) + "$/i)";
  if (utf8 != ascii) {
    test = "(" + test + " || " + begin + GlobToRegex(utf8) + "$/i))";
  }
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
