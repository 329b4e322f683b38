// Telling the SMTP side whose addresses changed.
//
// Two marks are left for it: a flag file per user, named by the uid, in
// /var/run/postara_server/update_smtp_user_list/, which stays until the SMTP side removes it, and
// the configuration key "smtp_changed_uids", which holds the uids of the latest notice alone.
#ifndef LIB_DOMAIN_UTILS_DOMAIN_BACKEND_RELATED_H
#define LIB_DOMAIN_UTILS_DOMAIN_BACKEND_RELATED_H

#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// Leaves both marks for `uids`, in any order, repeats allowed. The key is written only when every
// flag file could be made. False on failure, which is logged; marks made before it stay. An empty
// list is no notice: true, and the key keeps the last one.
//
// While a BatchScope lives the notice waits for its commit, so that whoever reads it finds the new
// addresses: true then. A failure is logged and no more; when the scope fails there is no notice.
// The library's own changes use CONTROL::INTERNAL::Announce, which remembers a failed one.
MDOMAIN_EXPORT bool NotifySMTPChangedUIDs(const std::vector<unsigned int>& uids);

// Makes (or touches) the flag files, and their folder with mode 0755 and the mail service's owner
// when it is missing. An empty list touches nothing. A file that cannot be made is logged and does
// not keep the others from being made; the result is then false.
MDOMAIN_EXPORT bool _TouchSMTPChangedUIDsFlags(const std::vector<unsigned int>& uids);

// Writes "smtp_changed_uids": the uids in decimal, ascending, each once, joined with ", ".
MDOMAIN_EXPORT bool _SetSMTPChangedUIDsToRedis(const std::vector<unsigned int>& uids);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_UTILS_DOMAIN_BACKEND_RELATED_H
