// Reading what "net ads search" prints: a count, an empty line, then every entry's attributes, one
// "name: value" a line, and an empty line after each entry.
#ifndef LIB_DOMAIN_ACCOUNTS_NET_OUTPUT_H
#define LIB_DOMAIN_ACCOUNTS_NET_OUTPUT_H

#include <map>
#include <set>
#include <string>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS::INTERNAL {

// The pseudo-attribute that holds an account's own short name.
inline constexpr const char* kAccountAttr = "zelm_account";

// Splits a line at its first ":"; both sides come without surrounding white space. A line without
// ":" is both name and value.
MDOMAIN_EXPORT void ParseDomainAttrVal(const std::string& line, std::string& name,
                                       std::string& value);

// From the tool's whole output to the attributes of each account, by account name (sAMAccountName).
// Every account has kAccountAttr and those of `attributes` that the entry has, under the spelling
// asked for (the directory answers in its own). Of an attribute with several values the last one
// counts. Addresses ("mail", "mailNickname") come without their domain. The account name comes as
// kAccountAttr alone, also when it is asked for, and no other line can set that.
//
// The tool escapes nothing, so a value with line ends looks like more lines and, with an empty one,
// like more entries. Hence lines of attributes that were not asked for are passed over, an entry
// with two account names is logged and left out, and the number of entries must be the announced
// one. False, one error line and `accounts` untouched when it is not, or when the output has less
// than two lines or announces no number. Lines end in LF or CRLF.
bool ParseNetSearchOutput(const std::string& output, const std::set<std::string>& attributes,
                          std::map<std::string, std::map<std::string, std::string>>& accounts);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_NET_OUTPUT_H
