// What another mail administration has, in the form in which all of them can be told, and the site
// that it makes.
#ifndef TOOLS_MDOMAIN_FOREIGN_MAIL_H
#define TOOLS_MDOMAIN_FOREIGN_MAIL_H

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/document/site.h"

namespace mdomain {

using MDOMAIN::DOCUMENT::Site;

struct ForeignMailbox {
  std::string address;
  std::string account;
};

struct ForeignAlias {
  std::string address;
  std::vector<std::string> targets;
};

struct ForeignMail {
  std::map<std::string, std::string> domains;              // description by name
  std::vector<std::pair<std::string, std::string>> names;  // additional name, of which domain
  std::vector<ForeignMailbox> mailboxes;
  std::vector<ForeignAlias> aliases;
  std::set<std::pair<std::string, std::string>> admins;  // domain, address of a mailbox
  // Sentences about what cannot be carried, in the order in which it was met.
  std::vector<std::string> left_out;
};

struct ImportChoice {
  std::string primary;           // empty: the first domain by name
  bool shares_accounts = false;  // one account may be the owner of several mailboxes
};

// The site. What has no place in it joins `left_out`, each with its reason. Refuses a primary
// domain that there is not, and accounts of several mailboxes that were not asked for.
Site MakeForeignSite(ForeignMail& mail, const ImportChoice& choice);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_FOREIGN_MAIL_H
