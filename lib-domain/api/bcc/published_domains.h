// The domains as the mail services know them, with the addresses that somebody has there.
#ifndef LIB_DOMAIN_API_BCC_PUBLISHED_DOMAINS_H
#define LIB_DOMAIN_API_BCC_PUBLISHED_DOMAINS_H

#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/bcc/local_parts.h"
#include "lib-domain/api/bcc/text.h"
#include "platform/include/account.h"

namespace MDOMAIN::API::INTERNAL {

// While one lives, every look-up in the account system is answered from one point in time.
class PublishedDomains {
 public:
  // Reads the SMTP settings and the alias table. False with a log line.
  bool Load();

  // The names of every domain, its own first.
  const std::map<int, std::list<std::string>>& names_by_domain() const { return names_by_domain_; }
  // The domain that has this name, negative when none has. `punycode` in lower case.
  int OwnerOf(const std::string& punycode) const;
  DomainFormCache& forms() { return forms_; }
  // The reference is good as long as the object lives.
  LocalPartFinder& NamesIn(int domain_id);

  // Whether a destination of a rule of `domain_id` is an address of one of the domains that nobody
  // has. A destination of which that cannot be said is none. False when the aliases cannot be read.
  bool IsUnknown(int domain_id, const std::string& destination, bool& unknown);

 private:
  bool LoadAliasEntries();
  bool LoadNames();

  korvmailserver::AccountSnapshot snapshot_;
  DomainFormCache forms_;
  std::map<int, std::list<std::string>> names_by_domain_;
  std::unordered_map<std::string, int> owners_;  // by punycode name
  std::unordered_map<int, std::unordered_set<std::string>> alias_entries_;
  std::map<int, LocalPartFinder> finders_;
};

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_BCC_PUBLISHED_DOMAINS_H
