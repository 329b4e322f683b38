// Which disclaimers of a domain apply to a message, and why, asked of Perl as the filter asks it.
#ifndef TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
#define TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H

#include <json/value.h>

#include <string>

namespace mdomain {

// One object per element of `config["disclaimer_list"]` (MimeDefang::ExplainDisclaimerConfigs), in
// order: "applies", "matched" and "excepted" (indexes of the rules that hold) and
// "local_recipient". Ends the command when Perl cannot be run.
Json::Value EvaluateDisclaimers(const Json::Value& config, const std::string& from,
                                const std::string& to);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DISCLAIMER_EXPLAIN_H
