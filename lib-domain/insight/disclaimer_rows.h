// Which disclaimers of a domain apply to a message, and which rules decided. `config` is that of
// MimeDefang::ExplainDisclaimerConfigs.
#ifndef LIB_DOMAIN_INSIGHT_DISCLAIMER_ROWS_H
#define LIB_DOMAIN_INSIGHT_DISCLAIMER_ROWS_H

#include <json/value.h>

#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::INSIGHT {

// One object per element of `config["disclaimer_list"]`, in order: "applies", "matched" and
// "excepted" (indexes of the rules that hold) and "local_recipient" (switched off for this one). An
// address is a mailbox, with or without "<" and ">", or empty; it has no control characters. The
// filter's Perl gives the same.
Json::Value AnswersOf(const Json::Value& config, const std::string& from, const std::string& to);

// One object per disclaimer of `list` (MimeDefang::GetDisclaimerList), in order: "id", "name",
// "op", "applies", "reason", "matched", "excepted", and "match_left_out" and "exceptions_left_out"
// with the indexes of rules that could not be used. `answers` are those above.
MDOMAIN_EXPORT Json::Value DisclaimerRows(const Json::Value& list, const Json::Value& config,
                                          const Json::Value& answers);

// "match_rule_list[1], exception_rule_list[0]": the rules of a row that could not be used; empty
// when there are none.
MDOMAIN_EXPORT std::string LeftOutRules(const Json::Value& row);

}  // namespace MDOMAIN::INSIGHT

#endif  // LIB_DOMAIN_INSIGHT_DISCLAIMER_ROWS_H
