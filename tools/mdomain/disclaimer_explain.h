// Which disclaimers of a domain apply to a message, and why. Perl evaluates the conditions, as in
// the filter.
#ifndef TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
#define TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H

#include <json/value.h>

#include <string>

namespace mdomain {

struct Question {
  std::string from;
  std::string to;
  int seconds;  // that Perl may take
};

// One object per disclaimer of `list` (MimeDefang::GetDisclaimerList), in order: "id", "name",
// "op", "applies", "reason", "matched" and "excepted" with the indexes of the rules that hold, and
// "match_left_out" and "exceptions_left_out" with those of rules that could not be used. `config`
// is that of MimeDefang::ExplainDisclaimerConfigs. Ends the command when Perl does not answer; it
// leaves neither Perl nor a file behind, also when this process is killed.
Json::Value ExplainDisclaimers(const Json::Value& list, const Json::Value& config,
                               const Question& question);

// "match_rule_list[1], exception_rule_list[0]": the rules of a row that could not be used; empty
// when there are none.
std::string LeftOutRules(const Json::Value& row);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
