// Internationalised mail addresses: validation and conversion (RFC 5321, 6531, 5890 to 5893).
#ifndef PLATFORM_EAI_H
#define PLATFORM_EAI_H

#include <string>

#include "platform/include/export.h"

namespace korvmailserver {
namespace utils {

// String equality; with `ignore_case`, ASCII letters are equal in either case, whatever the locale.
MDOMAIN_EXPORT bool Equals(const std::string& a, const std::string& b, bool ignore_case);

}  // namespace utils
}  // namespace korvmailserver

namespace KORV {
namespace POSTARA_SERVER {

// True for a domain of one label or more, each of which libidn2 accepts (IDNA 2008,
// non-transitional) and which in A-label form consists of letters, digits and inner hyphens (STD 3)
// and has at most 63 octets, 253 in all. No label is empty, there is no trailing dot, and the last
// label is not all digits. An "xn--" label must decode, and encoding the result must give it again.
//
// The text must be one of the two spellings of the domain, all A-labels or all U-labels, in any
// ASCII case: a text that only maps to a domain ("BÜCHER.de", full-width letters, "。" for ".") is
// not one (RFC 5891 section 4). So two texts are the same domain exactly when one of them is either
// spelling of the other, ASCII case ignored.
MDOMAIN_EXPORT bool IsValidEaiDomain(const std::string& domain);

// A dot-string: RFC 5321 atext and, with `allow_utf8`, non-ASCII UTF-8 in NFC without control
// characters and line or paragraph separators; 1 to 64 octets; no quoted form.
MDOMAIN_EXPORT bool IsValidEaiLocalPart(const std::string& local_part, bool allow_utf8);

// The A-label form of a domain; of an address (it has an "@") only what follows the last "@" is
// converted and looked at. It is mapped first, label by label, to lower case, NFC and ordinary
// letters and dots (RFC 5895). 0; or negative, with `out` untouched, when IsValidEaiDomain does not
// accept the result. ASCII domains come back in lower case. `out` may be `text`.
MDOMAIN_EXPORT int ConvertToPunycode(const std::string& text, std::string& out);
// The same to UTF-8 (U-labels, in lower case and NFC).
MDOMAIN_EXPORT int ConvertToUTF8(const std::string& text, std::string& out);
// The other spelling: a domain (of an address: its domain) with non-ASCII characters gives its
// A-label form, any other its U-label form. 0, or negative and `out` untouched, as above.
MDOMAIN_EXPORT int ConvertToPunycodeOrUTF8(const std::string& text, std::string& out);

// `text` in NFC without the characters that may not stand in a local part and without bytes that
// are not UTF-8, then without leading, trailing and doubled dots. The result may be empty and is
// not cut: it is a valid local part when it has 1 to 64 octets.
MDOMAIN_EXPORT std::string StripInvalidEaiChars(const std::string& text);

}  // namespace POSTARA_SERVER
}  // namespace KORV

#endif  // PLATFORM_EAI_H
