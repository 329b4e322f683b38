// Which source is in force, and the scope in which its first answer counts.
//
// The sources live as long as the process, so that files stay parsed and connections open; another
// root prefix, a changed host settings file or another domain name makes a new one.
#ifndef PLATFORM_ACCOUNT_SOURCES_H
#define PLATFORM_ACCOUNT_SOURCES_H

#include <memory>
#include <string>

#include "platform/account/source.h"
#include "platform/include/host_settings.h"
#include "platform/include/mail_conf.h"

namespace korvmailserver::account {

// The source of a type, never null. `domain` is the Windows domain's short name; null or empty
// means the configured one.
std::shared_ptr<Source> SourceFor(AUTH_TYPE type, const char* domain);

// The source that "account_type" names; one that refuses when that cannot be read.
std::shared_ptr<Source> SourceInForce();

// Names that the host settings call internal.
bool IsCalledInternal(const std::string& short_name);

void EnterSnapshot();
void LeaveSnapshot();
// Of either kind.
bool IsSnapshotOpen();
// The scope of few local accounts, which does nothing when it begins in a snapshot.
void EnterFew();
void LeaveFew();
bool IsFewOpen();

// The files that tell the local accounts: passwd, group, login.defs.
std::vector<std::string> LocalAccountFiles();
// Whether the local account files, as they were read last, had nothing to complain about. What is
// kept in memory is complained about once only.
bool AreLocalAccountsPlain();

}  // namespace korvmailserver::account

#endif  // PLATFORM_ACCOUNT_SOURCES_H
