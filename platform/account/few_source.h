// Questions about few local accounts within a scope, answered from one scan of the files.
//
// Whoever enumerates after all, or asks about many one by one, gets tables of all accounts, which
// answer everything from then on.
#ifndef PLATFORM_ACCOUNT_FEW_SOURCE_H
#define PLATFORM_ACCOUNT_FEW_SOURCE_H

#include <memory>

#include "platform/account/account_scan.h"
#include "platform/account/source.h"

namespace korvmailserver::account {

// `source` makes the tables; `scan` is of its files.
std::shared_ptr<Source> MakeFewSource(const std::shared_ptr<Source>& source,
                                      std::shared_ptr<const AccountScan> scan);

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_FEW_SOURCE_H
