// On a machine that pulls, where the model is not written: what is made from its addresses.
#ifndef LIB_DOMAIN_SYNC_PULLED_ADDRESSES_H
#define LIB_DOMAIN_SYNC_PULLED_ADDRESSES_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// Makes the maps for Postfix from the model, and remembers that this machine has them. False with a
// log line, and the maps of before in place.
MDOMAIN_EXPORT bool MakePulledPostfixMaps();
// Makes the registry that Dovecot reads from the model, in the file that is there. False with a log
// line, and the registry of before in place.
MDOMAIN_EXPORT bool MakePulledLogins();

// Whether somebody made the maps on this machine; of those that a machine made which pulls also
// when they were removed since.
bool HasPostfixMaps();
// Whether Dovecot reads a registry of this machine alone: one that was made and not removed since.
MDOMAIN_EXPORT bool HasLogins();

// After a pull: makes what this machine has of both; when the pull brought nothing, only maps of
// which one is missing, so that Postfix puts off all mail. False with a sentence for each that
// failed, and those of before in place.
bool FollowPulledAddresses(bool is_nothing_new, std::vector<std::string>& failures);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_PULLED_ADDRESSES_H
