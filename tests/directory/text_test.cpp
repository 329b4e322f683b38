// Texts on their way to a directory: nothing that an administrator or a stranger typed may change
// what a filter asks for, and one DN has one spelling.
#include "platform/directory/text.h"

#include <gtest/gtest.h>

#include "platform/include/ldap_search.h"

namespace {

namespace directory = korvmailserver::directory;

using TextCases = std::vector<std::pair<std::string, std::string>>;

TEST(DirectoryText, FilterValuesAreEscaped) {
  const TextCases cases = {
      {"alice", "(uid=alice)"},
      {"", "(uid=)"},
      {"al*ce", "(uid=al\\2ace)"},
      {")(uid=*", "(uid=\\29\\28uid=\\2a)"},
      {"DOM\\bob", "(uid=DOM\\5cbob)"},
      {"J\xC3\xB6", "(uid=J\\c3\\b6)"},
      {std::string("a\0\n\x7F b~", 7), "(uid=a\\00\\0a\\7f b~)"},
  };
  for (const auto& [value, filter] : cases) {
    EXPECT_EQ(directory::Equals("uid", value), filter);
  }
  EXPECT_EQ(directory::Both("(a=b)", "(c=d)"), "(&(a=b)(c=d))");
  EXPECT_EQ(directory::Both("a=b", "(c=d)"), "(&(a=b)(c=d))");
}

TEST(DirectoryText, SpellingsOfADnAreFolded) {
  const TextCases cases = {
      {"uid=BOB, ou=People , dc=Example", "uid=bob,ou=people,dc=example"},
      {"cn=a\\2C b\\2Bc,dc=x", "CN=A\\, B\\+C,DC=X"},
      {"cn=J\xC3\xB6,dc=x", "cn=J\\C3\\b6,dc=x"},
      {"uid=\u00c4NNE+ou=b,dc=x", "ou=B + uid=\u00e4nne,dc=x"},
      {"cn=\u03a3\u03a3,dc=x", "cn=\u03c3\u03c2,dc=x"},
      {"no DN, But Text", "NO DN, but text"},
  };
  for (const auto& [one, other] : cases) {
    EXPECT_EQ(directory::FoldDn(one), directory::FoldDn(other));
  }
  EXPECT_NE(directory::FoldDn("cn=a\\,dc=x"), directory::FoldDn("cn=a,dc=x"));
  EXPECT_NE(directory::FoldDn("cn=stra\u00dfe"), directory::FoldDn("cn=strasse"));
  EXPECT_NE(directory::FoldDn("cn=\u0131"), directory::FoldDn("cn=i"));
}

TEST(DirectoryText, OnlyAttributeNamesAndTextPass) {
  const std::pair<const char*, bool> names[] = {
      {"sn", true},    {"cn;lang-de", true}, {"A1", true},         {"x-y", true},
      {"", false},     {"--option", false},  {"1sn", false},       {";x", false},
      {"a b", false},  {"a=b", false},       {"sn)(uid=*", false}, {"a_b", false},
      {"a\nb", false}, {"\xC3\xBC", false}};
  for (const auto& [name, passes] : names) {
    EXPECT_EQ(korvmailserver::IsAttributeName(name), passes) << name;
  }
  EXPECT_TRUE(directory::IsText("J\xC3\xB6 \n"));
  EXPECT_FALSE(directory::IsText("J\xF6"));
  EXPECT_FALSE(directory::IsText(std::string("a\0", 2)));
}

}  // namespace
