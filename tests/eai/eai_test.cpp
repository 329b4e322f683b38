#include "platform/include/eai.h"

#include <gtest/gtest.h>

#include <string>

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
const std::string kThreeLabels = Repeat(kLabel63 + ".", 3);  // 192 octets

TEST(EaiDomain, BothSpellingsOfValidDomains) {
  struct {
    std::string text, ascii, unicode;
  } cases[] = {
      {"example.org", "example.org", "example.org"},
      {"Example.ORG", "example.org", "example.org"},
      {"localhost", "localhost", "localhost"},
      {"3com.com", "3com.com", "3com.com"},
      {"bücher.de", "xn--bcher-kva.de", "bücher.de"},
      {"BüCHER.DE", "xn--bcher-kva.de", "bücher.de"},
      {"XN--BCHER-KVA.de", "xn--bcher-kva.de", "bücher.de"},
      {"faß.de", "xn--fa-hia.de", "faß.de"},
      {"אב1.com", "xn--1-zhcd.com", "אב1.com"},
      {"xn--mgba3gch31f060k.ir", "xn--mgba3gch31f060k.ir", "نامه\u200cای.ir"},
      {"mail.bücher.example.例", "mail.xn--bcher-kva.example.xn--fsq", "mail.bücher.example.例"},
      {kLabel63 + ".com", kLabel63 + ".com", kLabel63 + ".com"},
      {kThreeLabels + std::string(61, 'b'), kThreeLabels + std::string(61, 'b'),
       kThreeLabels + std::string(61, 'b')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_TRUE(IsValidEaiDomain(c.text));
    std::string ascii;
    std::string unicode;
    EXPECT_EQ(ConvertToPunycode(c.text, ascii), 0);
    EXPECT_EQ(ascii, c.ascii);
    EXPECT_EQ(ConvertToUTF8(c.text, unicode), 0);
    EXPECT_EQ(unicode, c.unicode);
  }
}

// Registered as they stand they would be other names than the domains that they mean.
TEST(EaiDomain, WhatOnlyMapsToADomainIsConverted) {
  struct {
    std::string text, ascii, unicode;
  } cases[] = {
      {"BÜCHER.DE", "xn--bcher-kva.de", "bücher.de"},
      {"cafe\u0301.fr", "xn--caf-dma.fr", "café.fr"},
      {"例。jp", "xn--fsq.jp", "例.jp"},
      {"ｂｕｃｈ.de", "buch.de", "buch.de"},
      {"bücher.xn--fsq", "xn--bcher-kva.xn--fsq", "bücher.例"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_FALSE(IsValidEaiDomain(c.text));
    std::string ascii;
    std::string unicode;
    EXPECT_EQ(ConvertToPunycode(c.text, ascii), 0);
    EXPECT_EQ(ascii, c.ascii);
    EXPECT_EQ(ConvertToUTF8(c.text, unicode), 0);
    EXPECT_EQ(unicode, c.unicode);
  }
}

TEST(EaiDomain, RefusesInvalidDomainsAndLeavesTheOutputAlone) {
  const std::string cases[] = {"",
                               ".",
                               "a..b",
                               ".a.b",
                               "a.b.",
                               "。",
                               "\u00AD.com",  // empty labels
                               "a b.com",
                               "a_b.com",
                               "a/b.com",
                               "a\x01.com",
                               "a\n.com",  // not STD 3
                               "＿a.com",
                               "ü_.com",
                               "℀.com",
                               "a≠b.com",  // the same once mapped
                               std::string("a\0.com", 6),
                               "ü.com" + std::string(1, '\0'),  // zero bytes
                               "-a.com",
                               "a-.com",
                               "ab--cd.com",
                               "-ü.com",
                               "ü-.com",  // hyphens
                               "a.123",
                               "a.１２３",
                               "192.168.0.1",  // all digits at the end
                               "xn--a.com",
                               "xn--.com",
                               "xn--abc-.com",
                               "xn--zzzzzz99999.com",
                               "xn--ls8h.com",
                               "xn--bücher-kva.com",
                               "xn--fsq-.com",  // do not decode
                               "\xff.com",
                               "b\xc3.de",
                               "\xed\xa0\x80.com",
                               "\xc0\xae.com",  // not UTF-8
                               "☃.net",
                               "ab\u200db.com",
                               "\u0301a.com",
                               "אבa.com",
                               "a\u0085b.com",  // not IDNA 2008
                               std::string(64, 'a') + ".com",
                               Repeat("ü", 60) + ".com",  // label too long
                               kThreeLabels + std::string(62, 'b'),
                               Repeat("ü.", 60) + "com",  // domain too long
                               Repeat("ü", 1000000),
                               std::string(1000000, '.'),
                               Repeat("xn--", 250000)};
  for (const std::string& text : cases) {
    SCOPED_TRACE(text.substr(0, 80));
    EXPECT_FALSE(IsValidEaiDomain(text));
    std::string out = "as it was";
    EXPECT_LT(ConvertToPunycode(text, out), 0);
    EXPECT_LT(ConvertToUTF8(text, out), 0);
    EXPECT_LT(ConvertToPunycodeOrUTF8("x@" + text, out), 0);
    EXPECT_EQ(out, "as it was");
  }
}

TEST(EaiDomain, AnAddressIsNoDomain) {
  EXPECT_FALSE(IsValidEaiDomain("a@b.com"));
}

TEST(EaiConversion, OfAnAddressOnlyTheDomainChanges) {
  struct {
    const char *text, *ascii, *unicode, *other;
  } cases[] = {
      {"Bob@Example.org", "Bob@example.org", "Bob@example.org", "Bob@example.org"},
      {"Jörg@bücher.de", "Jörg@xn--bcher-kva.de", "Jörg@bücher.de", "Jörg@xn--bcher-kva.de"},
      {"Jörg@xn--bcher-kva.de", "Jörg@xn--bcher-kva.de", "Jörg@bücher.de", "Jörg@bücher.de"},
      {"a@ü@bücher.de", "a@ü@xn--bcher-kva.de", "a@ü@bücher.de", "a@ü@xn--bcher-kva.de"},
      {"@bücher.de", "@xn--bcher-kva.de", "@bücher.de", "@xn--bcher-kva.de"},
      {"bücher.de", "xn--bcher-kva.de", "bücher.de", "xn--bcher-kva.de"},
      {"xn--bcher-kva.de", "xn--bcher-kva.de", "bücher.de", "bücher.de"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::string out = c.text;
    EXPECT_EQ(ConvertToPunycode(out, out), 0);
    EXPECT_EQ(out, c.ascii);
    EXPECT_EQ(ConvertToUTF8(c.text, out), 0);
    EXPECT_EQ(out, c.unicode);
    EXPECT_EQ(ConvertToPunycodeOrUTF8(c.text, out), 0);
    EXPECT_EQ(out, c.other);
  }
  std::string out;
  EXPECT_LT(ConvertToPunycode("bob@", out), 0);
}

TEST(EaiLocalPart, AcceptsDotStringsOfAtextAndUtf8) {
  struct {
    std::string text;
    bool ascii_only, utf8;
  } cases[] = {
      {"bob", true, true},
      {"o'brien", true, true},
      {"a.b+c", true, true},
      {"!#$%&'*+-/=?^_`{|}~09azAZ", true, true},
      {std::string(64, 'a'), true, true},
      {std::string(65, 'a'), false, false},
      {"jörg.müller", false, true},
      {"例え", false, true},
      {Repeat("ü", 32), false, true},
      {Repeat("ü", 33), false, false},
      {"jo\u0308rg", false, false},  // not NFC
      {"a\u0085b", false, false},
      {"a\u2028b", false, false},
      {"a\xff", false, false},
      {"", false, false},
      {".a", false, false},
      {"a.", false, false},
      {"a..b", false, false},
      {"a b", false, false},
      {"\"a\"", false, false},
      {"a@b", false, false},
      {"a\\b", false, false},
      {"a\nb", false, false},
      {std::string("a\0", 2), false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(IsValidEaiLocalPart(c.text, false), c.ascii_only);
    EXPECT_EQ(IsValidEaiLocalPart(c.text, true), c.utf8);
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
