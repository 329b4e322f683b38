// What the sources of the blind-copy rules share: spellings of domains, lines of rule files.
//
// Not for users of the library: their header is bcc.h.
#ifndef LIB_DOMAIN_API_BCC_UNIT_H
#define LIB_DOMAIN_API_BCC_UNIT_H

#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lib-domain/api/bcc.h"

namespace internal {

// The spellings of a domain. A domain that cannot be converted has itself as its only one.
struct DomainForms {
  bool convertible = false;
  std::string punycode;
  std::string utf8;
  std::vector<std::string> spellings;  // each once, the one that was asked for first
};

// Converts each domain once: a table has many addresses and few domains.
class DomainFormCache {
 public:
  // Valid as long as the cache.
  const DomainForms& Get(const std::string& domain);

 private:
  std::unordered_map<std::string, DomainForms> forms_;
};

// What a file of UTF-8 may begin with.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Whether a text holds a control character; a tab is none here.
bool HasControl(std::string_view text);
// Whether a text can be a field of a line: not empty, no blank, no control character.
bool StandsInLine(const std::string& text);
// The same for the first field, which must not make the line a comment by a "#" at its begin, and
// no byte order mark may be taken for the file's.
bool StandsAtLineBegin(const std::string& text);

// A text's part up to, and its part after, the last "@". False when it has none.
bool SplitAddress(const std::string& text, std::string& local_part, std::string& domain);

struct BccBadLine {
  size_t number;  // from 1
  std::string problem;
};

// Reads the lines of a rule file: rules in their order, and every line that is none.
void ParseBccRules(std::string_view text, int type, std::list<BccInfo>& rules,
                   std::vector<BccBadLine>& bad_lines);

// Forgets the process-wide object. For tests only.
void ResetBccInstanceForTest();

}  // namespace internal

#endif  // LIB_DOMAIN_API_BCC_UNIT_H
