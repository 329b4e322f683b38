// Telling the SMTP side whose addresses changed, without fail: the users are recorded in the
// transaction of the change, and the record goes when the marks are made
// (utils/domain_backend_related.h).
#ifndef LIB_DOMAIN_CONTROL_NOTICE_H
#define LIB_DOMAIN_CONTROL_NOTICE_H

#include <vector>

namespace MDOMAIN::CONTROL::INTERNAL {

// Announces users, in any order, repeats allowed; nobody is no notice. All announcements of a
// BatchScope become one notice after its commit, and none when it fails; without a scope it is
// given at once. When it cannot be given that is logged, and the record stays for the next change.
// False with a log line when the users can neither be recorded nor told.
bool Announce(const std::vector<unsigned int>& uids);

// Gives one notice of everybody on record; true when there is nobody. False with log lines when a
// mark cannot be made: the record stays. One process at a time: whoever waits finds nobody.
bool SendNotices();

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_NOTICE_H
