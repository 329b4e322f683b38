#include "platform/include/eai.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace KORV::POSTARA_SERVER;

std::string Repeat(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

const std::string kLabel63(63, 'a');
const std::string kDomain253 = Repeat(kLabel63 + ".", 3) + std::string(61, 'b');

// A domain, or an address of which only the domain counts. `valid`: it may be registered as it
// stands; what only maps to a domain would be another name than the one that it means.
struct Spelling {
  std::string text;
  bool valid, other_is_ascii;
  std::string ascii, unicode;
};

const Spelling kSpellings[] = {
    {"example.org", true, false, "example.org", "example.org"},
    {"Example.ORG", true, false, "example.org", "example.org"},
    {"localhost", true, false, "localhost", "localhost"},
    {"3com.com", true, false, "3com.com", "3com.com"},
    {"bücher.de", true, true, "xn--bcher-kva.de", "bücher.de"},
    {"BüCHER.DE", true, true, "xn--bcher-kva.de", "bücher.de"},
    {"XN--BCHER-KVA.de", true, false, "xn--bcher-kva.de", "bücher.de"},
    {"faß.de", true, true, "xn--fa-hia.de", "faß.de"},
    {"אב1.com", true, true, "xn--1-zhcd.com", "אב1.com"},
    {"xn--mgba3gch31f060k.ir", true, false, "xn--mgba3gch31f060k.ir", "نامه\u200cای.ir"},
    {"mail.bücher.example.例", true, true, "mail.xn--bcher-kva.example.xn--fsq",
     "mail.bücher.example.例"},
    {kLabel63 + ".com", true, false, kLabel63 + ".com", kLabel63 + ".com"},
    {kDomain253, true, false, kDomain253, kDomain253},
    {"BÜCHER.DE", false, true, "xn--bcher-kva.de", "bücher.de"},
    {"cafe\u0301.fr", false, true, "xn--caf-dma.fr", "café.fr"},
    {"例。jp", false, true, "xn--fsq.jp", "例.jp"},
    {"ｂｕｃｈ.de", false, true, "buch.de", "buch.de"},
    {"bücher.xn--fsq", false, true, "xn--bcher-kva.xn--fsq", "bücher.例"},
    {"a@b.com", false, false, "a@b.com", "a@b.com"},
    {"Bob@Example.org", false, false, "Bob@example.org", "Bob@example.org"},
    {"Jörg@bücher.de", false, true, "Jörg@xn--bcher-kva.de", "Jörg@bücher.de"},
    {"Jörg@xn--bcher-kva.de", false, false, "Jörg@xn--bcher-kva.de", "Jörg@bücher.de"},
    {"a@ü@bücher.de", false, true, "a@ü@xn--bcher-kva.de", "a@ü@bücher.de"},
    {"@bücher.de", false, true, "@xn--bcher-kva.de", "@bücher.de"},
};

TEST(EaiDomain, IsConvertedToEitherSpelling) {
  for (const Spelling& c : kSpellings) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(IsValidEaiDomain(c.text), c.valid);
    std::string out = c.text;
    EXPECT_EQ(ConvertToPunycode(out, out), 0);
    EXPECT_EQ(out, c.ascii);
    EXPECT_EQ(ConvertToUTF8(c.text, out), 0);
    EXPECT_EQ(out, c.unicode);
    EXPECT_EQ(ConvertToPunycodeOrUTF8(c.text, out), 0);
    EXPECT_EQ(out, c.other_is_ascii ? c.ascii : c.unicode);
  }
}

TEST(EaiDomain, RefusesInvalidDomainsAndLeavesTheOutputAlone) {
  const std::vector<std::vector<std::string>> kinds = {
      {"empty labels", "", ".", "a..b", ".a.b", "a.b.", "。", "\u00AD.com"},
      {"not STD 3", "a b.com", "a_b.com", "a/b.com", "a\x01.com", "a\n.com"},
      {"not STD 3 once mapped", "＿a.com", "ü_.com", "℀.com", "a≠b.com"},
      {"zero bytes", std::string("a\0.com", 6), "ü.com" + std::string(1, '\0')},
      {"hyphens", "-a.com", "a-.com", "ab--cd.com", "-ü.com", "ü-.com"},
      {"all digits at the end", "a.123", "a.１２３", "192.168.0.1"},
      {"does not decode", "xn--a.com", "xn--.com", "xn--abc-.com", "xn--zzzzzz99999.com",
       "xn--ls8h.com", "xn--bücher-kva.com", "xn--fsq-.com"},
      {"not UTF-8", "\xff.com", "b\xc3.de", "\xed\xa0\x80.com", "\xc0\xae.com"},
      {"not IDNA 2008", "☃.net", "ab\u200db.com", "\u0301a.com", "אבa.com", "a\u0085b.com"},
      {"label too long", std::string(64, 'a') + ".com", Repeat("ü", 60) + ".com"},
      {"domain too long", kDomain253 + "b", Repeat("ü.", 60) + "com", Repeat("ü", 1000000),
       std::string(1000000, '.'), Repeat("xn--", 250000)},
  };
  for (const std::vector<std::string>& kind : kinds) {
    for (auto text = kind.begin() + 1; text != kind.end(); ++text) {
      SCOPED_TRACE(kind[0] + ": " + text->substr(0, 80));
      EXPECT_FALSE(IsValidEaiDomain(*text));
      std::string out = "as it was";
      EXPECT_LT(ConvertToPunycode(*text, out), 0);
      EXPECT_LT(ConvertToUTF8(*text, out), 0);
      EXPECT_LT(ConvertToPunycodeOrUTF8("x@" + *text, out), 0);
      EXPECT_EQ(out, "as it was");
    }
  }
}

TEST(EaiLocalPart, IsADotStringOfAtextAndUtf8) {
  struct {
    bool ascii_only, utf8;
    std::vector<std::string> texts;
  } cases[] = {
      {true, true, {"bob", "o'brien", "a.b+c", "!#$%&'*+-/=?^_`{|}~09azAZ", std::string(64, 'a')}},
      {false, true, {"jörg.müller", "例え", Repeat("ü", 32)}},
      {false, false, {std::string(65, 'a'), Repeat("ü", 33), "jo\u0308rg" /* not NFC */}},
      {false, false, {"a\u0085b", "a\u2028b", "a\xff", "a\nb", std::string("a\0", 2)}},
      {false, false, {"a\u202eb", "a\u061cb", "a\u2066b", "a\u200b", "\ufeffa"}},
      {false, false, {"", ".a", "a.", "a..b", "a b", "\"a\"", "a@b", "a\\b"}},
  };
  for (const auto& c : cases) {
    for (const std::string& text : c.texts) {
      SCOPED_TRACE(text);
      EXPECT_EQ(IsValidEaiLocalPart(text, false), c.ascii_only);
      EXPECT_EQ(IsValidEaiLocalPart(text, true), c.utf8);
    }
  }
}

TEST(EaiLocalPart, StrippingLeavesAValidLocalPart) {
  struct {
    std::string text, stripped;
  } cases[] = {
      {"bob", "bob"},
      {"Müller, Jörg", "MüllerJörg"},
      {"..a..b...", "a.b"},
      {" . . ", ""},
      {"a. .b", "a.b"},
      {"jo\u0308rg", "jörg"},
      {"jo \u0308rg", "jörg"},            // the accent meets its letter only once the blank is gone
      {"a\u037eb", "ab"},                 // becomes ";" in NFC
      {"a\xff\xc3(\xe4\xbe\x8b", "a例"},  // stray bytes go, the characters beside them stay
      {std::string("a\0b\r\n\u0085\u2029", 10), "ab"},
      {"<a@b>\"'\\", "ab'"},
      {"a\u202eb\u200b", "ab"},
      {"", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(StripInvalidEaiChars(c.text), c.stripped);
  }
  EXPECT_EQ(StripInvalidEaiChars(Repeat("ü .", 300000)).size(), 899999U);
}

TEST(EaiEquals, IgnoresTheCaseOfAsciiLettersOnly) {
  using korvmailserver::utils::Equals;
  EXPECT_TRUE(Equals("Bob@X", "bOB@x", true));
  EXPECT_FALSE(Equals("Bob", "bob", false));
  EXPECT_FALSE(Equals("bob", "bobb", true));
  EXPECT_FALSE(Equals("@[", "`{", true));
  EXPECT_FALSE(Equals("Ä", "ä", true));
  EXPECT_FALSE(Equals(std::string("a\0b", 3), std::string("a\0c", 3), true));
}

}  // namespace
