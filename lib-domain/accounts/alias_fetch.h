// Attributes of accounts, for aliases: from the account files, an LDAP directory, a Windows domain.
#ifndef LIB_DOMAIN_ACCOUNTS_ALIAS_FETCH_H
#define LIB_DOMAIN_ACCOUNTS_ALIAS_FETCH_H

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace MDOMAIN::UTILS::INTERNAL {

using AttributeNames = std::set<std::string>;
using Attributes = std::map<std::string, std::string>;        // name to value
using AccountAttributes = std::map<std::string, Attributes>;  // by the account's short name

// Adds every account of a directory, with those of the needed attributes that it has. False and an
// error line when the directory cannot be asked or its answer broke off.
using DirectoryQuery = bool (*)(const AttributeNames& needed, AccountAttributes& accounts);
bool QueryLdap(const AttributeNames& needed, AccountAttributes& accounts);
bool QueryWindowsDomain(const AttributeNames& needed, AccountAttributes& accounts);

// Adds the mail address, without its domain, of those local accounts that have one, if "mail" is
// needed: local accounts have no other attribute. Accounts that are not found are logged.
void FetchLocalAttributes(const std::vector<std::string>& user_short_names,
                          const AttributeNames& needed, AccountAttributes& accounts);

// The answer of one directory search, kept for later callers who need none but the same attributes.
class AttributeAnswer {
 public:
  // Every search asks for `needed`, whatever else it asks for.
  explicit AttributeAnswer(AttributeNames needed) : needed_(std::move(needed)) {}

  // Searches, unless the last answer has all of `needed`. False, and nothing kept, when that fails.
  bool Ask(DirectoryQuery query, const AttributeNames& needed);

  // Replaces the attributes of those accounts in `wanted` that the directory knows; the others keep
  // theirs. Names are compared byte by byte, or without regard to letter case.
  void CopyTo(AccountAttributes& wanted) const;
  void CopyToIgnoringCase(AccountAttributes& wanted) const;

 private:
  AttributeNames needed_;
  bool is_answered_ = false;
  AccountAttributes accounts_;
};

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_ALIAS_FETCH_H
