// Internationalised mail addresses: validation and conversion (RFC 5321, 6531, 5890 to 5893).
#ifndef PLATFORM_EAI_H
#define PLATFORM_EAI_H

#include <string>

namespace korvmailserver {
namespace utils {

// String equality; with `ignore_case`, ASCII letters are equal in either case.
bool Equals(const std::string& a, const std::string& b, bool ignore_case);

}  // namespace utils
}  // namespace korvmailserver

namespace KORV {
namespace POSTARA_SERVER {

// A domain whose every label libidn2 accepts (IDNA 2008, non-transitional, NFC, STD 3 rules), whose
// A-label form has at most 253 octets and whose last label is not all digits. No trailing dot.
bool IsValidEaiDomain(const std::string& domain);

// A dot-string: RFC 5321 atext and, with `allow_utf8`, non-ASCII UTF-8 in NFC without control
// characters; 1 to 64 octets; no quoted form.
bool IsValidEaiLocalPart(const std::string& local_part, bool allow_utf8);

// The A-label form of a domain; of an address (it has an "@") only what follows the last "@" is
// converted. 0, or negative and `out` untouched when it is not convertible. ASCII domains come back
// in lower case.
int ConvertToPunycode(const std::string& text, std::string& out);
// The same towards UTF-8 (U-labels).
int ConvertToUTF8(const std::string& text, std::string& out);
// The other spelling: a text with non-ASCII characters gives its A-label form, any other its
// U-label form. 0, or negative and `out` untouched.
int ConvertToPunycodeOrUTF8(const std::string& text, std::string& out);

// `text` without the characters that may not stand in a local part, then without leading, trailing
// and doubled dots. The result may be empty.
std::string StripInvalidEaiChars(const std::string& text);

}  // namespace POSTARA_SERVER
}  // namespace KORV

#endif  // PLATFORM_EAI_H
