// passwd(5) and aliases(5), as local mail was delivered by them. A name without "@" in the aliases
// is one of the domain, and one behind a backslash the mailbox itself.
#include <algorithm>

#include "lib-domain/base/text.h"
#include "platform/include/postfix_map.h"
#include "tools/mdomain/foreign_sources.h"
#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr size_t kPasswdFields = 7;

struct Line {
  size_t number;  // from 1
  std::string text;
};

std::vector<Line> Lines(const std::string& text) {
  std::vector<Line> lines;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    lines.push_back({lines.size() + 1, text.substr(begin, end - begin)});
    begin = end + 1;
  }
  return lines;
}

[[noreturn]] void BadLine(const std::string& file, size_t number, const std::string& what) {
  throw Failure(kRefused, file + ", line " + std::to_string(number) + ": " + what);
}

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields = {""};
  for (const char c : line) {
    if (c == ':') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

void ReadPasswd(const PasswdAliases& source, ForeignMail& mail) {
  size_t others = 0;
  for (const Line& line : Lines(ReadForeignFile(source.passwd))) {
    if (line.text.find_first_not_of(" \t\r") == std::string::npos) {
      continue;
    }
    if (line.text[0] == '+' || line.text[0] == '-') {
      mail.left_out.push_back(source.passwd + ", line " + std::to_string(line.number) +
                              ": accounts of a directory are not in the file");
      continue;
    }
    const std::vector<std::string> fields = Fields(line.text);
    unsigned int uid = 0;
    if (fields.size() != kPasswdFields || fields[0].empty() ||
        !MDOMAIN::BASE::ConvertToUID(fields[2], uid)) {
      BadLine(source.passwd, line.number, "no account (name:password:uid:gid:text:home:shell)");
    }
    if (uid < source.first_uid || uid > source.last_uid) {
      ++others;
    } else {
      mail.mailboxes.push_back({fields[0] + "@" + source.domain, fields[0]});
    }
  }
  if (others > 0) {
    mail.left_out.push_back(
        Counted(others, "account") + " of the system: their uids are not from " +
        std::to_string(source.first_uid) + " to " + std::to_string(source.last_uid));
  }
}

// Lines with what continues them: a line that begins with a blank belongs to the one before.
std::vector<Line> LogicalLines(const PasswdAliases& source) {
  std::vector<Line> logical;
  for (Line& line : Lines(ReadForeignFile(source.aliases))) {
    const size_t begin = line.text.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line.text[begin] == '#') {
      continue;
    }
    if (begin == 0) {
      logical.push_back(std::move(line));
    } else if (logical.empty()) {
      BadLine(source.aliases, line.number, "it continues a line, and none is before it");
    } else {
      logical.back().text += line.text;
    }
  }
  return logical;
}

class AliasLine {
 public:
  AliasLine(const PasswdAliases& source, const Line& line) : source_(source), line_(line) {}

  ForeignAlias Read() {
    const std::string name = Word(':');
    if (name.empty() || at_ >= line_.text.size()) {
      BadLine(source_.aliases, line_.number, "no alias (name: value, value)");
    }
    ForeignAlias alias{Address(name), {}};
    while (at_ < line_.text.size()) {
      ++at_;
      const std::string target = Word(',');
      if (!target.empty()) {
        alias.targets.push_back(Target(name, target));
      }
    }
    return alias;
  }

 private:
  // Up to the separator outside of quotes, which are taken off, as blanks around it are.
  std::string Word(char separator) {
    std::string word;
    bool is_quoted = false;
    size_t needed = 0;  // up to the last character that is no blank of the end
    for (; at_ < line_.text.size() && (is_quoted || line_.text[at_] != separator); ++at_) {
      const char c = line_.text[at_];
      const bool is_escaped = c == '\\' && at_ + 1 < line_.text.size() && is_quoted;
      if (c == '"') {
        is_quoted = !is_quoted;
        continue;
      }
      if (is_escaped) {
        ++at_;
      }
      const bool is_blank = !is_quoted && (c == ' ' || c == '\t' || c == '\r');
      if (!is_blank || !word.empty()) {
        word += line_.text[at_];
        needed = is_blank ? needed : word.size();
      }
    }
    if (is_quoted) {
      BadLine(source_.aliases, line_.number, "a quoted text that does not end");
    }
    return word.substr(0, needed);
  }

  std::string Address(const std::string& name) const {
    return name.find('@') == std::string::npos ? name + "@" + source_.domain : name;
  }

  // Programs, files and lists stay as they are.
  std::string Target(const std::string& name, const std::string& target) const {
    if (target[0] == '|' || target[0] == '/' || target[0] == ':') {
      return target;
    }
    const std::string plain = target[0] == '\\' ? target.substr(1) : target;
    if (target[0] == '\\' &&
        korvmailserver::FoldMapKey(plain) != korvmailserver::FoldMapKey(name)) {
      return target;  // somebody else's mailbox past their forwarding, for which there is no word
    }
    return Address(plain);
  }

  const PasswdAliases& source_;
  const Line& line_;
  size_t at_ = 0;
};

}  // namespace

ForeignMail ReadPasswdAliases(const PasswdAliases& source) {
  ForeignMail mail;
  mail.domains[source.domain] = "";
  ReadPasswd(source, mail);
  for (const Line& line : LogicalLines(source)) {
    mail.aliases.push_back(AliasLine(source, line).Read());
  }
  return mail;
}

}  // namespace mdomain
