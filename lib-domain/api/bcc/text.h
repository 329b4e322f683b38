// Texts of blind-copy rules as files and maps want them: spellings of domains, fields of a line.
#ifndef LIB_DOMAIN_API_BCC_TEXT_H
#define LIB_DOMAIN_API_BCC_TEXT_H

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace MDOMAIN::API::INTERNAL {

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
  // The reference is good as long as the cache lives.
  const DomainForms& Get(const std::string& domain);

 private:
  std::unordered_map<std::string, DomainForms> forms_;
};

// What a file of UTF-8 may begin with.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Whether a text holds a control character other than a tab, which separates fields.
bool HasControl(std::string_view text);
// Whether a text can be a field of a line: not empty, no blank, no control character.
bool StandsInLine(const std::string& text);
// The same for the first field of a line: one that begins with "#" would make the line a comment,
// and one that begins with a byte order mark could be taken for the file's own.
bool StandsAtLineBegin(const std::string& text);

// Whether a text is the name of an account with blanks inside, as Windows domains have them.
bool IsAccountWithBlank(const std::string& text);

// Splits a text at its last "@". False, with both parts untouched, when it has none.
bool SplitAddress(const std::string& text, std::string& local_part, std::string& domain);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_TEXT_H
