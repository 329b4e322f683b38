// What a refresh would do, without doing it.
#ifndef LIB_DOMAIN_SYNC_PREVIEW_H
#define LIB_DOMAIN_SYNC_PREVIEW_H

#include "lib-domain/utils/updater.h"
#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// Fills `summary` with what Updater::Refresh would find, create and delete in the mirror now. Asks
// the account system as a refresh does, but reads the database through a connection of its own that
// cannot write: a database that is missing stays missing (everything is new then), and one of an
// older version keeps its schema. False, with one log line, where a refresh would fail too.
MDOMAIN_EXPORT bool PreviewRefresh(RefreshSummary& summary);
// The same of a refresh with a limit.
MDOMAIN_EXPORT bool PreviewRefresh(const DeletionLimit& limit, RefreshSummary& summary);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_PREVIEW_H
