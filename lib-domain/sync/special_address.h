// Addresses of domains that no single user has: entries of the alias table with several members,
// and those that every domain answers, "postmaster" (RFC 5321) and "abuse" (RFC 2142).
#ifndef LIB_DOMAIN_SYNC_SPECIAL_ADDRESS_H
#define LIB_DOMAIN_SYNC_SPECIAL_ADDRESS_H

#include <string>

#include "lib-domain/db/special_address.h"
#include "platform/include/alias.h"
#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

class MailTarget;

// The key of the mail configuration: an account or an address, for what nobody else gets.
constexpr const char* kPostmasterKey = "postmaster";

// Between the addresses of one text.
constexpr const char* kSeparator = ", ";

// Who gets the mail of an entry: the addresses of its members, joined; empty without any. False
// with a log line when they cannot be read.
bool ReceiversOf(const MailTarget& target, const ::Alias::Entry& entry, std::string& receivers);

// Who gets the mail of these addresses now. An entry goes to its members: accounts, the accounts of
// its groups, addresses elsewhere; members that are no longer there are passed over, and an entry
// without any has no address. A domain's postmaster is its administrators, else whoever the mail
// configuration names, else nobody; an alias of a user of that name comes first. An entry comes
// before such an alias, so that a new account does not take over the mail of several. False with a
// log line when something cannot be read.
MDOMAIN_EXPORT bool CollectSpecialAddresses(const MailTarget& target,
                                            DB::INTERNAL::SpecialAddresses& addresses);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_SPECIAL_ADDRESS_H
