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

// kFailed: the directory cannot be asked, or its answer broke off. kUnreadable: somebody's value of
// one of the attributes spoils the answer; a search without that attribute may succeed.
enum class SearchResult { kWhole, kUnreadable, kFailed };

// Adds every account of a directory, with those of the needed attributes that it has. An error line
// unless the answer is whole.
using DirectoryQuery = SearchResult (*)(const AttributeNames& needed, AccountAttributes& accounts);
SearchResult QueryLdap(const AttributeNames& needed, AccountAttributes& accounts);
SearchResult QueryWindowsDomain(const AttributeNames& needed, AccountAttributes& accounts);

// Adds the mail address, without its domain, of those local accounts that have one, if "mail" is
// needed: local accounts have no other attribute. Accounts that are not found are logged.
void FetchLocalAttributes(const std::vector<std::string>& user_short_names,
                          const AttributeNames& needed, AccountAttributes& accounts);

// The answer of one directory search, kept for later callers who need none but the same attributes.
class AttributeAnswer {
 public:
  // A search asks for `needed`, whatever else it asks for, until such an answer was unreadable.
  explicit AttributeAnswer(AttributeNames needed) : together_(std::move(needed)) {}

  // Searches, unless the last answer has all of `needed`. False and an error line when that fails.
  // A search that failed is made anew the next time, unless it had taken long or was unreadable.
  bool Ask(DirectoryQuery query, const AttributeNames& needed);

  // Replaces the attributes of those accounts in `wanted` that the directory knows; the others keep
  // theirs. Names are compared byte by byte, or without regard to letter case.
  void CopyTo(AccountAttributes& wanted) const;
  void CopyToIgnoringCase(AccountAttributes& wanted) const;

 private:
  SearchResult _SearchFor(DirectoryQuery query, const AttributeNames& attributes);

  AttributeNames together_;  // of all callers
  bool is_each_alone_ = false;
  bool is_given_up_ = false;
  std::set<AttributeNames> unreadable_;
  AttributeNames answered_;
  bool is_answered_ = false;
  AccountAttributes accounts_;
};

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_ALIAS_FETCH_H
