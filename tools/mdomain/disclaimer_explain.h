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

// The rows of MDOMAIN::INSIGHT::DisclaimerRows. Ends the command when Perl does not answer; it
// leaves neither Perl nor a file behind, also when this process is killed.
Json::Value ExplainDisclaimers(const Json::Value& list, const Json::Value& config,
                               const Question& question);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
