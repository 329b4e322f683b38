// Any bytes as a domain, a local part and an address: what converts is clean and converts both
// ways, only what stands in one of its two spellings is a domain, what is stripped is acceptable.

#include "fuzz/target.h"
#include "platform/include/eai.h"

namespace {

using namespace KORV::POSTARA_SERVER;
using fuzz::Require;

std::string Ascii(const std::string& text) {
  std::string out;
  Require(ConvertToPunycode(text, out) == 0);
  return out;
}

std::string Unicode(const std::string& text) {
  std::string out;
  Require(ConvertToUTF8(text, out) == 0);
  return out;
}

void CheckLocalPart(const std::string& text) {
  const std::string stripped = StripInvalidEaiChars(text);
  Require(StripInvalidEaiChars(stripped) == stripped);
  if (!stripped.empty() && stripped.size() <= 64) {
    Require(IsValidEaiLocalPart(stripped, true));
  }
  if (IsValidEaiLocalPart(text, true)) {
    Require(stripped == text);
    Require(text.find_first_of(std::string("\0\r\n \"\\<>@,;:()[]", 16)) == std::string::npos);
  } else {
    Require(!IsValidEaiLocalPart(text, false));
  }
}

void CheckConvertedDomain(const std::string& text, const std::string& ascii) {
  const std::string unicode = Unicode(text);
  const auto is = [&text](const std::string& spelling) {
    return korvmailserver::utils::Equals(text, spelling, true);
  };
  Require(IsValidEaiDomain(text) == (is(ascii) || is(unicode)));
  Require(ascii.size() <= 253);
  Require(ascii.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-.") == std::string::npos);
  Require(IsValidEaiDomain(ascii) && IsValidEaiDomain(unicode));
  Require(Ascii(ascii) == ascii && Unicode(ascii) == unicode);
  Require(Ascii(unicode) == ascii && Unicode(unicode) == unicode);
  Require(Ascii("\xff@" + text) == "\xff@" + ascii);
  std::string other;
  Require(ConvertToPunycodeOrUTF8(ascii, other) == 0 && other == unicode);
  Require(ConvertToPunycodeOrUTF8(unicode, other) == 0 && other == ascii);
}

void CheckDomain(const std::string& text) {
  if (text.find('@') != std::string::npos) {
    Require(!IsValidEaiDomain(text));
    return;
  }
  std::string out = "untouched";
  if (ConvertToPunycode(text, out) == 0) {
    CheckConvertedDomain(text, out);
    return;
  }
  Require(!IsValidEaiDomain(text) && ConvertToUTF8("a@" + text, out) < 0);
  Require(ConvertToPunycodeOrUTF8("a@" + text, out) < 0);
  Require(out == "untouched");
}

}  // namespace

void fuzz::Run(const std::string& text) {
  CheckLocalPart(text);
  CheckDomain(text);
}
