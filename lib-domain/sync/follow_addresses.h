// What is made from the addresses of the model follows each change, at the cost of what changed.
//
// The domain database logs which addresses may have another owner (db/address_change.h). The
// registry of address owners and Postfix's maps are brought in line with the log, or, where that
// does not tell, built anew. Nobody else can change the model meanwhile.
#ifndef LIB_DOMAIN_SYNC_FOLLOW_ADDRESSES_H
#define LIB_DOMAIN_SYNC_FOLLOW_ADDRESSES_H

#include <cstddef>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// After a change of the model: what was built from it follows; nothing happens where nothing was.
// False with a log line; what is left then is found by the next call.
MDOMAIN_EXPORT bool FollowAddresses();

// Whether it would do something. False with a log line when that cannot be told.
bool HasChangesToFollow(bool& has_changes);

struct OwnerCounts {
  size_t domain_names = 0;
  size_t local_parts = 0;
};

// Makes the registry what the model says, and has it follow from now on. What is as it was left, or
// behind by a few changes, is not made anew; rows that others wrote go. False with a log line, and
// the old registry in place.
MDOMAIN_EXPORT bool BuildOwners(OwnerCounts& counts);
// The same of the registry that Dovecot reads on a machine that pulls, or has pulled, and of the
// maps that Postfix reads.
MDOMAIN_EXPORT bool BuildLogins();
MDOMAIN_EXPORT bool BuildPostfixMaps();
// The maps follow no longer, and with the last that followed go triggers and log. The files stay.
// False with a log line, and all as it was.
MDOMAIN_EXPORT bool ForgetPostfixMaps();

// Whether a registry, or a map, was built from the model and no longer is what its last building
// or following left, or would be another one now. False with a log line when it cannot be told.
bool AreOwnersBehind(bool& are_behind);
bool AreLoginsBehind(bool& are_behind);
bool ArePostfixMapsBehind(bool& are_behind);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_FOLLOW_ADDRESSES_H
