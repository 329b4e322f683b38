// Reads rule files. Whatever a file holds: what is taken for a rule is one, stands in one line, and
// that line gives the same rule again; every other line is reported once, in order.
#include <algorithm>

#include "fuzz/target.h"
#include "lib-domain/api/bcc/rule_file.h"

namespace {

bool Same(const BccInfo& a, const BccInfo& b) {
  return a.name == b.name && a.type == b.type && a.bcc_to == b.bcc_to;
}

// As a line holds it: an account name with blanks in quotes.
std::string Field(const std::string& text) {
  return text.find(' ') == std::string::npos ? text : "\"" + text + "\"";
}

}  // namespace

void fuzz::Run(const std::string& input) {
  if (input.empty()) {
    return;
  }
  const int type = static_cast<unsigned char>(input[0]) % 3;
  const std::string_view text = std::string_view(input).substr(1);
  std::list<BccInfo> rules;
  std::vector<MDOMAIN::API::INTERNAL::BccBadLine> bad_lines;
  MDOMAIN::API::INTERNAL::ParseBccRules(text, type, rules, bad_lines);

  std::string again;
  for (const BccInfo& rule : rules) {
    Require(BCC::CheckRule(rule).empty());
    again += Field(rule.name) + " " + Field(rule.bcc_to) + "\n";
  }
  std::list<BccInfo> rules_again;
  std::vector<MDOMAIN::API::INTERNAL::BccBadLine> none;
  MDOMAIN::API::INTERNAL::ParseBccRules(again, type, rules_again, none);
  Require(none.empty());
  Require(std::equal(rules.begin(), rules.end(), rules_again.begin(), rules_again.end(), Same));

  size_t last = 0;
  for (const MDOMAIN::API::INTERNAL::BccBadLine& bad : bad_lines) {
    Require(bad.number > last && !bad.problem.empty());
    last = bad.number;
  }
  const size_t lines = std::count(text.begin(), text.end(), '\n') + 1;
  Require(last <= lines && rules.size() + bad_lines.size() <= lines);
}
