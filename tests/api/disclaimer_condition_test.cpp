// The conditions are Perl: each is evaluated by Perl and compared with the same rule evaluated
// here.
#include "lib-domain/api/disclaimer/condition.h"

#include <gtest/gtest.h>
#include <json/value.h>
#include <json/writer.h>

#include <cstdio>
#include <random>
#include <sstream>

#include "lib-domain/base/text.h"
#include "lib-domain/insight/disclaimer_rows.h"
#include "tests/support/fixture.h"

namespace {

using MDOMAIN::API::INTERNAL::EmailGlobs;
using MDOMAIN::API::INTERNAL::EmailTest;
using MDOMAIN::API::INTERNAL::EscapePerlString;
using MDOMAIN::API::INTERNAL::GroupTest;
using MDOMAIN::API::INTERNAL::JoinTests;
using MDOMAIN::API::INTERNAL::RuleTarget;
using MDOMAIN::API::INTERNAL::UserTest;

// Whether `text` fits a pattern in which "*" stands for any text; ASCII case is ignored.
bool Fits(const std::string& pattern, const std::string& text, size_t p = 0, size_t t = 0) {
  if (p == pattern.size()) {
    return t == text.size();
  }
  if (pattern[p] == '*') {
    return Fits(pattern, text, p + 1, t) || (t < text.size() && Fits(pattern, text, p, t + 1));
  }
  return t < text.size() && MDOMAIN::BASE::EqualsIgnoreCase({pattern[p]}, {text[t]}) &&
         Fits(pattern, text, p + 1, t + 1);
}

class DisclaimerCondition : public test::RootTest {
 protected:
  DisclaimerCondition() {
    input_["maps"]["all_domain_map"]["example.com"] = 1;
    input_["maps"]["all_domain_map"]["xn--bcher-kva.example"] = 1;
    input_["maps"]["gid_username_map"]["2000"]["alice"] = 1;
    input_["cases"] = Json::arrayValue;
  }

  void Expect(const std::string& condition, const std::string& sender, const std::string& recipient,
              bool want) {
    Json::Value entry;
    entry["condition"] = condition;
    entry["sender"] = sender;
    entry["recipient"] = recipient;
    input_["cases"].append(entry);
    wanted_.push_back(want);
  }

  void ExpectSender(const std::string& condition, const std::string& sender, bool want) {
    Expect(condition, sender, "nobody@elsewhere.example", want);
  }

  // Asks Perl about all cases at once.
  void Evaluate() {
    Write("/cases.json", Json::writeString(Json::StreamWriterBuilder(), input_));
    const std::string command =
        "perl " TEST_SOURCE_DIR "/tests/api/evaluate_conditions.pl " + root() + "/cases.json";
    FILE* perl = popen(command.c_str(), "r");
    ASSERT_NE(perl, nullptr);
    std::string output;
    char buffer[4096];
    for (size_t n = 0; (n = fread(buffer, 1, sizeof(buffer), perl)) > 0;) {
      output.append(buffer, n);
    }
    ASSERT_EQ(pclose(perl), 0);
    std::istringstream lines(output);
    std::string line;
    for (size_t i = 0; i < wanted_.size(); ++i) {
      ASSERT_TRUE(std::getline(lines, line)) << "case " << i;
      EXPECT_EQ(line, wanted_[i] ? "1" : "0") << input_["cases"][static_cast<int>(i)];
    }
  }

  Json::Value input_;
  std::vector<bool> wanted_;
};

TEST_F(DisclaimerCondition, EmailPatternsMatchWholeAddressesOnly) {
  const struct {
    const char* pattern;
    const char* address;
    bool want;
  } kCases[] = {
      {"alice@example.com", "alice@example.com", true},
      {"alice@example.com", "ALICE@Example.COM", true},
      {"alice@example.com", "malice@example.com", false},
      {"alice@example.com", "alice@example.com.evil.org", false},
      {"*@example.com", "joe@example.com", true},
      {"*@example.com", "joe@sub.example.com", false},
      {"*", "anyone@anywhere.example", true},
      {"*******************************@*", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", false},
      {"o'brien+tag@example.com", "o'brien+tag@example.com", true},
      {"$x{a}|b@example.com", "$x{a}|b@example.com", true},
      {"$x{a}|b@example.com", "b@example.com", false},
      {"a/i || 1 || /@example.com", "anyone@example.org", false},
      {"(?{die})@example.com", "(?{die})@example.com", true},
      {"(?{die})@example.com", "x@example.com", false},
      {"@{[die]}@example.com", "x@example.com", false},
      {"%ENV#x@example.com", "%ENV#x@example.com", true},
      {"joe@bücher.example", "joe@xn--bcher-kva.example", true},
      {"*@*.bücher.example", "joe@a.xn--bcher-kva.example", true},
      {"jö*@example.com", "jörg@example.com", true},
      // Internationalised mail has the domain in UTF-8.
      {"joe@bücher.example", "joe@bücher.example", true},
      {"j*@*.xn--bcher-kva.Example", "joe@a.bücher.example", true},
      {"joe@XN--bcher-kva.example", "joe@xn--bcher-kva.example", true},
      {"joe@xn--bcher-kva.example", "joe@bucher.example", false},
      // Tried in every division these would take minutes.
      {"*a*a*a*a*a*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
       false},
      {"*a*a*a*a*a*a*a*a*a", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
       true},
  };
  for (const auto& c : kCases) {
    std::string test;
    ASSERT_TRUE(EmailTest(RuleTarget::kSender, c.pattern, test)) << c.pattern;
    ExpectSender(test, c.address, c.want);
    ASSERT_TRUE(EmailTest(RuleTarget::kRecipient, c.pattern, test)) << c.pattern;
    Expect(test, "nobody@elsewhere.example", c.address, c.want);
  }
  Evaluate();
}

// Filters that were configured before go on with the text that they know.
TEST_F(DisclaimerCondition, PatternsWithUpToTwoStarsReadAsTheyAreTyped) {
  const std::pair<const char*, const char*> kCases[] = {
      {"joe@a.example", R"(joe\@a\.example)"},
      {"*@a.example", R"(.*\@a\.example)"},
      {"*", ".*"},
      {"j*@*.example", R"(j.*\@.*\.example)"},
      {"**a**", ".*a.*"},
      {"*a*b*", "(?>.*?a)(?>.*?b).*"},
  };
  for (const auto& [pattern, regex] : kCases) {
    std::string test;
    ASSERT_TRUE(EmailTest(RuleTarget::kSender, pattern, test)) << pattern;
    EXPECT_EQ(test, std::string("($Sender =~ /^") + regex + "$/i)");
  }
}

TEST_F(DisclaimerCondition, PatternsThatCannotBeWrittenSafelyAreRefused) {
  const std::string kRefused[] = {"",
                                  "a\\@example.com",
                                  "a\nb@example.com",
                                  std::string("a\0b@example.com", 15),
                                  "\x7F@example.com",
                                  "\xFF@example.com",
                                  "a@b*\xC3\xBC.example",
                                  "a@\xC3\xBC .example"};
  for (const std::string& pattern : kRefused) {
    std::string test = "untouched";
    EXPECT_FALSE(EmailTest(RuleTarget::kSender, pattern, test)) << pattern;
    EXPECT_EQ(test, "untouched");
  }
}

TEST_F(DisclaimerCondition, UsersAreFoundByAnyAliasInAPublishedDomain) {
  const std::string hostile = "${`id`}";
  const std::string quoted = "a\"b\\c@d%e";
  std::string test;
  ASSERT_TRUE(UserTest(RuleTarget::kSender, {"alice", "a.smith", hostile, quoted}, test));
  ExpectSender(test, "Alice@EXAMPLE.com", true);
  ExpectSender(test, "a.smith@xn--bcher-kva.example", true);
  ExpectSender(test, hostile + "@example.com", true);
  ExpectSender(test, quoted + "@example.com", true);
  ExpectSender(test, "alice@unpublished.example", false);
  ExpectSender(test, "axsmith@example.com", false);
  ExpectSender(test, "@example.com", false);
  ExpectSender(test, "", false);
  ASSERT_TRUE(UserTest(RuleTarget::kRecipient, {"alice"}, test));
  Expect(test, "alice@example.com", "bob@example.com", false);
  Expect(test, "bob@example.com", "alice@example.com", true);
  Evaluate();
  EXPECT_FALSE(UserTest(RuleTarget::kSender, {}, test));
}

TEST_F(DisclaimerCondition, GroupsAndJoinedTests) {
  const std::string group = GroupTest(RuleTarget::kSender, 2000);
  ExpectSender(group, "ALICE@example.com", true);
  ExpectSender(group, "bob@example.com", false);
  ExpectSender(group, "alice@elsewhere.example", false);
  ExpectSender(GroupTest(RuleTarget::kSender, 2001), "alice@example.com", false);

  const std::string yes = "(1 == 1)";
  const std::string no = "(1 == 0)";
  const struct {
    const char* op;
    std::vector<std::string> matches;
    std::vector<std::string> exceptions;
    bool want;
  } kCases[] = {
      {"and", {yes, no}, {}, false},   {"or", {yes, no}, {}, true},
      {"and", {yes, yes}, {no}, true}, {"or", {no, yes}, {no, yes}, false},
      {"or", {yes, no}, {no}, true},   {"and", {yes}, {yes}, false},
  };
  for (const auto& c : kCases) {
    std::string condition;
    ASSERT_TRUE(JoinTests(c.op, c.matches, c.exceptions, condition));
    ExpectSender(condition, "x@example.com", c.want);
  }
  Evaluate();
  std::string condition;
  EXPECT_FALSE(JoinTests("AND", {yes}, {}, condition));
  EXPECT_FALSE(JoinTests("", {yes}, {}, condition));
}

// What explains disclaimers without Perl says of one rule.
bool IsExplained(const Json::Value& maps, const Json::Value& rule, const std::string& sender) {
  Json::Value config = maps;
  Json::Value& built = config["disclaimer_list"].append(Json::objectValue);
  built["op"] = "or";
  built["match"].append(rule);
  return MDOMAIN::INSIGHT::AnswersOf(config, sender, "x@y.example")[0]["applies"].asBool();
}

// Random patterns of every printable character against random addresses of the same few, so that
// matches are frequent; Perl and what explains without it decide alike.
TEST_F(DisclaimerCondition, AgreesWithThePlainRule) {
  std::mt19937 random(7);
  const std::string alphabet = "aB*.@$/+?()[]{}|^\"'`%#&;~-_=!, ";
  const auto word = [&](size_t most) {
    std::string text;
    for (size_t n = 1 + random() % most; n > 0; --n) {
      text += alphabet[random() % alphabet.size()];
    }
    return text;
  };
  for (int i = 0; i < 1500; ++i) {
    std::string pattern = word(6);
    std::string address = word(6);
    if (i % 3 == 0) {  // many stars, few letters
      pattern = address = "";
      for (int n = 0; n < 12; ++n) {
        pattern += "ab**"[random() % 4];
        address += "aab"[random() % 3];
      }
    }
    if (i % 2 == 0 && i % 3 != 0) {
      address = pattern;
      for (size_t star; (star = address.find('*')) != std::string::npos;) {
        address.replace(star, 1, random() % 2 == 0 ? "" : "b");
      }
    }
    std::string test;
    ASSERT_TRUE(EmailTest(RuleTarget::kSender, pattern, test));
    ExpectSender(test, address, Fits(pattern, address));
    Json::Value rules(Json::arrayValue);
    std::string globs[2];
    ASSERT_TRUE(EmailGlobs(pattern, globs[0], globs[1]));
    rules[0]["target"] = rules[1]["target"] = "sender";
    rules[0]["globs"].append(globs[0]);
    rules[0]["globs"].append(globs[1]);
    EXPECT_EQ(IsExplained(input_["maps"], rules[0], "<" + address + ">"), Fits(pattern, address));
    std::string alias = word(5);
    ASSERT_TRUE(UserTest(RuleTarget::kSender, {alias}, test));
    std::string sender = (i % 3 == 0 ? word(5) : alias) + "@example.com";
    const bool is_theirs = MDOMAIN::BASE::EqualsIgnoreCase(sender, alias + "@example.com");
    ExpectSender(test, sender, is_theirs);
    rules[1]["aliases"].append(alias);
    EXPECT_EQ(IsExplained(input_["maps"], rules[1], "<" + sender + ">"), is_theirs);
  }
  Evaluate();
}

TEST_F(DisclaimerCondition, EveryAsciiByteSurvivesPerlQuotes) {
  for (int byte = 0; byte < 0x80; ++byte) {
    const std::string text = std::string("x") + static_cast<char>(byte) + "y";
    ExpectSender(
        "\"" + EscapePerlString(text) + "\" eq \"x\" . chr(" + std::to_string(byte) + ") . \"y\"",
        "a@example.com", true);
  }
  Evaluate();
}

}  // namespace
