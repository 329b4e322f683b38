// Rule files: what a rule must look like, reading it from a line, writing it into one.
//
// One line is "NAME DESTINATION". A file does not say which type and domain its rules have: whoever
// imports it does.
#include "lib-domain/api/bcc/rule_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>

#include "lib-domain/api/bcc/text.h"
#include "lib-domain/api/export_file.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "platform/include/eai.h"
#include "platform/include/files.h"
#include "platform/include/maillog.h"

namespace MDOMAIN::API::INTERNAL {

namespace {

// Two addresses of the greatest length in UTF-8, and some blanks.
constexpr size_t kLineSize = 4096;
constexpr std::string_view kBlanks = " \t";

// An account name with blanks in double quotes at `begin` of a line: its end after the second
// quote. Anything else in quotes is no such field, and npos.
size_t EndOfQuoted(std::string_view line, size_t begin) {
  const size_t quote = line[begin] == '"' ? line.find('"', begin + 1) : std::string_view::npos;
  if (quote == std::string_view::npos ||
      !IsAccountWithBlank(std::string(line.substr(begin + 1, quote - begin - 1)))) {
    return std::string_view::npos;
  }
  const bool ends = quote + 1 == line.size() || kBlanks.find(line[quote + 1]) != kBlanks.npos;
  return ends ? quote + 1 : std::string_view::npos;
}

std::vector<std::string> Fields(std::string_view line) {
  std::vector<std::string> fields;
  size_t end = 0;
  for (size_t begin = line.find_first_not_of(kBlanks); begin != std::string_view::npos;
       begin = line.find_first_not_of(kBlanks, end)) {
    end = EndOfQuoted(line, begin);
    if (end != std::string_view::npos) {
      fields.emplace_back(line.substr(begin + 1, end - begin - 2));
      continue;
    }
    end = std::min(line.find_first_of(kBlanks, begin), line.size());
    fields.emplace_back(line.substr(begin, end - begin));
  }
  return fields;
}

// A field as a line holds it; the empty text for one that no line can hold.
std::string Field(const std::string& text) {
  if (IsAccountWithBlank(text)) {
    return "\"" + text + "\"";
  }
  return StandsInLine(text) ? text : "";
}

// What is wrong with a line that holds something; a good one becomes a rule.
std::string ParseLine(std::string_view line, int type, BccInfo& rule) {
  if (line.size() > kLineSize) {
    return "longer than " + std::to_string(kLineSize) + " bytes";
  }
  if (HasControl(line)) {
    return "control character";
  }
  std::vector<std::string> fields = Fields(line);
  if (fields.size() != 2) {
    return std::to_string(fields.size()) + " fields instead of a name and a destination";
  }
  rule = {std::move(fields[0]), type, std::move(fields[1])};
  return BCC::CheckRule(rule);
}

bool IsAccountOrAlias(std::string text) {
  if (IsAccountWithBlank(text)) {
    std::replace(text.begin(), text.end(), ' ', 'x');
  }
  // An account of a Windows domain may be given with that domain in front of it.
  const size_t backslash = text.find('\\');
  if (backslash == std::string::npos) {
    return KORV::POSTARA_SERVER::IsValidEaiLocalPart(text, true);
  }
  return KORV::POSTARA_SERVER::IsValidEaiLocalPart(text.substr(0, backslash), false) &&
         KORV::POSTARA_SERVER::IsValidEaiLocalPart(text.substr(backslash + 1), true);
}

// Anything that maps to a domain: these are addresses as people type them.
bool IsDomain(const std::string& text) {
  std::string ascii;
  return text.find('@') == std::string::npos &&
         KORV::POSTARA_SERVER::ConvertToPunycode(text, ascii) >= 0;
}

bool IsAddressOrAccount(const std::string& text) {
  std::string local_part;
  std::string domain;
  if (!SplitAddress(text, local_part, domain)) {
    return IsAccountOrAlias(text);
  }
  return KORV::POSTARA_SERVER::IsValidEaiLocalPart(local_part, true) && IsDomain(domain);
}

// Names as they stand in an exported file. Each rule must come back under a name of its own, and
// give the same line when it is exported again, so only a usual spelling is changed, and only into
// a name that no other rule has.
class ExportedNames {
 public:
  explicit ExportedNames(const std::list<BccInfo>& rules) {
    for (const BccInfo& rule : rules) {
      stored_.insert(rule.name);
    }
  }

  std::string Of(const BccInfo& rule) {
    std::string local_part;
    std::string domain = rule.name;
    const bool address = SplitAddress(rule.name, local_part, domain);
    if (!address && rule.type != BCC_DOMAIN) {
      return rule.name;
    }
    const DomainForms& forms = cache_.Get(domain);
    if (!forms.convertible || forms.utf8 != domain) {
      return rule.name;
    }
    const std::string name = (address ? local_part + "@" : "") + forms.punycode;
    return stored_.count(name) == 0 ? name : rule.name;
  }

 private:
  std::unordered_set<std::string> stored_;
  DomainFormCache cache_;
};

std::string ExportedDestination(const std::string& bcc_to, DomainFormCache& cache) {
  std::string local_part;
  std::string domain;
  if (!SplitAddress(bcc_to, local_part, domain)) {
    return bcc_to;
  }
  const DomainForms& forms = cache.Get(domain);
  if (!forms.convertible) {
    LOG_ERROR("failed to convert bcc destination [%s] to punycode", bcc_to.c_str());
    return bcc_to;
  }
  return local_part + "@" + forms.punycode;
}

}  // namespace

void ParseBccRules(std::string_view text, int type, std::list<BccInfo>& rules,
                   std::vector<BccBadLine>& bad_lines) {
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    const size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos || line[first] == '#') {
      continue;
    }
    BccInfo rule;
    std::string problem = ParseLine(line, type, rule);
    if (problem.empty()) {
      rules.push_back(std::move(rule));
    } else {
      bad_lines.push_back({number, std::move(problem)});
    }
  }
}

}  // namespace MDOMAIN::API::INTERNAL

using namespace MDOMAIN::API::INTERNAL;  // NOLINT(google-build-using-namespace)

std::string BCC::CheckRule(const BccInfo& rule) {
  if (!StandsAtLineBegin(rule.name) && !IsAccountWithBlank(rule.name)) {
    return "the name is empty, has a control character or a blank at an end, or begins with \"#\" "
           "or "
           "a byte order mark";
  }
  if (!StandsInLine(rule.bcc_to) && !IsAccountWithBlank(rule.bcc_to)) {
    return "the destination is empty or has a control character or a blank at an end";
  }
  if (rule.type != BCC_RECIPIENT && rule.type != BCC_SENDER && rule.type != BCC_DOMAIN) {
    return "there is no type " + std::to_string(rule.type);
  }
  if (rule.type == BCC_DOMAIN && !IsDomain(rule.name)) {
    return "the name is no domain";
  }
  if (rule.type != BCC_DOMAIN && !IsAddressOrAccount(rule.name)) {
    return "the name is no address, account or alias";
  }
  if (!IsAddressOrAccount(rule.bcc_to)) {
    return "the destination is no address, account or alias";
  }
  return "";
}

int BCC::exportBCC(int type, const std::string& path) {
  return exportBCC(domain_id_, type, path);
}

int BCC::exportBCC(int domain_id, int type, const std::string& path) {
  std::list<BccInfo> rules;
  // In one read: pages would be read at different times, and each would walk over those before it.
  if (LoadBCCList(type, domain_id, 0, -1, "name", "desc", rules) != 0) {
    return -1;
  }
  ExportedNames names(rules);
  DomainFormCache cache;
  std::vector<std::string> lines;
  lines.reserve(rules.size());
  for (const BccInfo& rule : rules) {
    const std::string name = Field(names.Of(rule));
    const std::string destination = Field(ExportedDestination(rule.bcc_to, cache));
    if (name.empty() || destination.empty() ||
        !(StandsAtLineBegin(rule.name) || IsAccountWithBlank(rule.name))) {
      LOG_ERROR("bcc rule [%s] with destination [%s] cannot stand in a file", rule.name.c_str(),
                rule.bcc_to.c_str());
      return -1;
    }
    lines.push_back(name);
    lines.back().append(" ").append(destination);
  }
  // A name that changed its spelling is out of order.
  std::sort(lines.begin(), lines.end(), std::greater<>());
  lines.emplace_back();
  if (WriteExport(path, MDOMAIN::BASE::Join(lines, "\n")) != 0) {
    LOG_ERROR("%s: %s", path.c_str(), strerror(errno));
    LOG_ERROR("open file %s fail", path.c_str());
    return -1;
  }
  return 0;
}

int BCC::importBCC(int type, const std::string& path) {
  return importBCC(domain_id_, type, path);
}

int BCC::importBCC(int domain_id, int type, const std::string& path) {
  std::string text;
  if (korvmailserver::ReadFile(path, text) != 0) {
    maillog(korvmailserver::kLogError, "Cannot read %s: %m", path.c_str());
    LOG_ERROR("open file error, %s", path.c_str());
    return -1;
  }
  std::list<BccInfo> rules;
  std::vector<BccBadLine> bad_lines;
  ParseBccRules(text, type, rules, bad_lines);
  for (const BccBadLine& bad : bad_lines) {
    LOG_ERROR("%s:%zu: %s", path.c_str(), bad.number, bad.problem.c_str());
  }
  if (!bad_lines.empty() || setBCC(domain_id, rules) != 0) {
    LOG_ERROR("import list fail, type: %d", type);
    return bad_lines.empty() ? -3 : -2;
  }
  return 0;
}
