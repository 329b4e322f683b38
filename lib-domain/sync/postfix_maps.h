// The maps that Postfix reads, beyond what follows a change by itself.
#ifndef LIB_DOMAIN_SYNC_POSTFIX_MAPS_H
#define LIB_DOMAIN_SYNC_POSTFIX_MAPS_H

#include <string>

#include "lib-domain/sync/owner_registry.h"
#include "platform/include/export.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::UTILS {

struct PostfixContent {
  korvmailserver::MapEntries addresses;  // with the account's address
  korvmailserver::MapEntries domains;    // every name in both spellings
};

// What the maps should hold for these owners. False with a log line when the settings that name
// the accounts' addresses cannot be read.
MDOMAIN_EXPORT bool CollectPostfixMaps(const OwnerRegistryContent& owners, PostfixContent& content);

namespace INTERNAL {
// Whether Postfix, which folds more than a domain name may be folded, takes the spelling for
// another domain: "stra\u00DFe.example" is not "strasse.example". The ASCII spelling serves then.
bool IsTakenForAnother(const std::string& name);
}  // namespace INTERNAL

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_POSTFIX_MAPS_H
