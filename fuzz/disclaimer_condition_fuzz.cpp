// Patterns and aliases, one a line, as Perl text. The first byte tells how they are joined.
// Whatever they hold, the text is one expression: quotes, patterns and parentheses end where they
// must, and nothing outside of them comes from the input. With DISCLAIMER_CONDITIONS set, what was
// built is appended to that file, a line each, for Perl itself to look at.
#include <fstream>
#include <sstream>
#include <vector>

#include "fuzz/target.h"
#include "lib-domain/api/disclaimer/condition.h"

namespace {

using namespace MDOMAIN::API::INTERNAL;
using fuzz::Require;

bool IsInterpolated(char c) {
  return c == '$' || c == '@';
}

// Where the literal that begins behind `at` ends: at the first `end` without a backslash. Perl
// would put in the value of a variable for "$" or "@" without one; "$" may stand before the end of
// a pattern.
size_t SkipLiteral(const std::string& text, size_t at, char end) {
  for (++at; at < text.size() && text[at] != end; ++at) {
    if (text[at] == '\\') {
      ++at;
      continue;
    }
    Require(!IsInterpolated(text[at]) || (end == '/' && text.compare(at, 2, "$/") == 0));
    Require(static_cast<unsigned char>(text[at]) >= 0x20 && text[at] != 0x7F);
  }
  Require(at < text.size());
  return at;
}

// The text without what stands in quotes and patterns, its parentheses balanced.
std::string Skeleton(const std::string& text) {
  std::string skeleton;
  int depth = 0;
  for (size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    depth += c == '(' ? 1 : c == ')' ? -1 : 0;
    Require(depth >= 0);
    skeleton += c;
    if (c == '"' || c == '/') {
      at = SkipLiteral(text, at, c);
      skeleton += c;
    }
  }
  Require(depth == 0);
  return skeleton;
}

void Keep(const std::string& condition) {
  const char* path = std::getenv("DISCLAIMER_CONDITIONS");
  if (path != nullptr) {
    std::ofstream(path, std::ios::app | std::ios::binary) << condition << "\n";
  }
}

}  // namespace

void fuzz::Run(const std::string& input) {
  if (input.empty()) {
    return;
  }
  const auto kind = static_cast<unsigned char>(input[0]);
  const RuleTarget target = (kind & 1) != 0 ? RuleTarget::kSender : RuleTarget::kRecipient;
  const std::string name = target == RuleTarget::kSender ? "$Sender" : "$Recipient";
  std::istringstream lines(input.substr(1));
  std::vector<std::string> tests;
  for (std::string line; std::getline(lines, line);) {
    std::string test;
    if (EmailTest(target, line, test)) {
      const std::string match = "(" + name + " =~ //i)";
      const std::string skeleton = Skeleton(test);
      std::string twice = "(";  // for two spellings of a domain
      twice.append(match).append(" || ").append(match).append(")");
      Require(skeleton == match || skeleton == twice);
      tests.push_back(test);
    }
    Require(UserTest(target, {line, "b"}, test));
    std::string want =
        "(exists($all_domain_map{lc VDomain}) && (lc VName eq lc \"\" || lc VName eq lc \"\"))";
    for (size_t at = 0; (at = want.find('V', at)) != std::string::npos; at += name.size()) {
      want.replace(at, 1, name);
    }
    Require(Skeleton(test) == want);
    tests.push_back(test);
  }
  if (tests.empty()) {
    return;
  }
  tests.push_back(GroupTest(target, kind));
  const std::vector<std::string> exceptions((kind & 2) != 0 ? 0 : 1, tests.front());
  std::string condition;
  Require(JoinTests((kind & 4) != 0 ? "and" : "or", tests, exceptions, condition));
  Skeleton(condition);
  Keep(condition);
}
