// Match and exception rules as Perl text.
//
// The text is code that the mail filter runs, made from what administrators typed and from aliases
// and group numbers. Whatever those hold, it stays a comparison: what could end a string, start a
// variable or an escape is escaped, and what cannot be written safely makes the rule invalid.
#ifndef LIB_DOMAIN_API_DISCLAIMER_CONDITION_H
#define LIB_DOMAIN_API_DISCLAIMER_CONDITION_H

#include <string>
#include <vector>

namespace MDOMAIN::API::INTERNAL {

enum class RuleTarget { kSender, kRecipient };

// `text` for the inside of Perl double quotes: a backslash before \ " $ @, and control characters
// as \x{NN}.
std::string EscapePerlString(const std::string& text);

// A test of the whole address against `pattern`, in which "*" stands for any text. ASCII case is
// ignored. What follows the last "@" is taken in its A-label form, label by label, and in its
// UTF-8 form where that differs. Many stars take no longer than two. False, with
// `test` untouched, when the pattern is empty, holds a backslash, a control character or invalid
// UTF-8, or has a label in its domain that mixes "*" with non-ASCII letters or is invalid.
bool EmailTest(RuleTarget target, const std::string& pattern, std::string& test);

// The two forms of the pattern that EmailTest compares, which may be the same. False where that is.
bool EmailGlobs(const std::string& pattern, std::string& ascii, std::string& utf8);

// The address is in a published domain and its local part is one of `aliases`. False, with `test`
// untouched, when there are none.
bool UserTest(RuleTarget target, const std::vector<std::string>& aliases, std::string& test);

// The address is in a published domain and its local part is in %gid_username_map for the gid.
std::string GroupTest(RuleTarget target, unsigned int gid);

// "(MATCH)" or "(MATCH) && !(EXCEPTIONS)". `matches` is not empty. Match tests are joined by " && "
// for op "and", " || " for "or"; exceptions by " || ". False for any other op.
bool JoinTests(const std::string& op, const std::vector<std::string>& matches,
               const std::vector<std::string>& exceptions, std::string& condition);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_CONDITION_H
