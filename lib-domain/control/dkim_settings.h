// The DKIM signing of a domain: two keys of the mail configuration and the two key files.
#ifndef LIB_DOMAIN_CONTROL_DKIM_SETTINGS_H
#define LIB_DOMAIN_CONTROL_DKIM_SETTINGS_H

#include <set>
#include <string>

#include "lib-domain/control/policy_hooks.h"

namespace MDOMAIN::CONTROL::INTERNAL {

std::string DkimFolder();
// Adds the indexes from 1 up that are asked about and sign, have a selector or a key file. False
// with a log line.
bool ListDkimDomains(const IndexFilter& is_asked, std::set<int>& domain_idxs);
// Switches the signing off, empties the selector and removes the key files; missing ones are no
// failure. False with a log line.
bool ClearDkim(int domain_idx);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_DKIM_SETTINGS_H
