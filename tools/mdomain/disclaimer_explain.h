// Which disclaimers of a domain apply to a message, and why. Perl evaluates the conditions, as in
// the filter.
#ifndef TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
#define TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H

#include <json/value.h>

#include <string>

namespace mdomain {

// One object per disclaimer of `list` (MimeDefang::GetDisclaimerList), in order: "id", "name",
// "applies", "reason", and "matched" and "excepted" with the indexes of the rules that hold.
// `config` is that of MimeDefang::ExplainDisclaimerConfigs. Ends the command when Perl cannot be
// run.
Json::Value ExplainDisclaimers(const Json::Value& list, const Json::Value& config,
                               const std::string& from, const std::string& to);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
