// What a machine does after what other machines publish took the place of its files and keys: it
// makes the maps for Postfix and the registry for Dovecot where it has them, flags the users whose
// addresses changed, and runs the administrator's own programs.
//
//   PullStart start;
//   start.is_unfinished = IsPullUnfinished();
//   PullPublication(..., report, [&] { BeforePull(start); });
//   // the maps of blind copies, if the caller makes them
//   FollowPull(start, report, failures);
#ifndef LIB_DOMAIN_SYNC_FOLLOW_PULL_H
#define LIB_DOMAIN_SYNC_FOLLOW_PULL_H

#include <string>
#include <vector>

#include "platform/include/export.h"
#include "platform/include/nodes.h"

namespace MDOMAIN::UTILS {

struct PullStart {
  // An earlier pull was not followed to its end: its run was killed, or a flag could not be made.
  bool is_unfinished = false;
};

// Whether there is a mark of a pull that was not followed to its end.
MDOMAIN_EXPORT bool IsPullUnfinished();

// Keeps the model file as it is before the pull, as a hidden hard link beside it, to be compared
// with afterwards; the one of an unfinished pull stays, so no change is missed. False with one log
// line when it cannot be kept: pull all the same, FollowPull then takes everybody for changed.
MDOMAIN_EXPORT bool BeforePull(PullStart& start);

// Call it after every PullPublication, also after one that failed: what was replaced before the
// failure is followed. Nothing happens where nothing changed and nothing was left unfinished.
//
// First it makes the maps for Postfix and the registry that Dovecot reads from a model that was
// replaced, where this machine has them. Then it makes the flag files (_TouchSMTPChangedUIDsFlags)
// of the users whose addresses differ between the two models: another alias, flag or role, another
// name of their domain; of everybody with an address where there was no model or it cannot be
// compared. Those of the key "smtp_changed_uids" are among them when that changed.
//
// Then it runs the programs in /etc/mailserver-domain/hooks/after-pull.d, below the root prefix, in
// the byte order of their names: regular files, or links to such, with permission to execute, whose
// names are made of letters, digits, "-", "_" and "." and end neither in ".bak" nor in
// ".dpkg-SOMETHING". One that does not belong to root or the caller, or that group or others may
// write to, is not run, nor is any where that holds for the folder. Each may take 60 seconds in
// all. It gets no arguments, the environment PATH, MDOMAIN_ROOT (if there is one) and
// MDOMAIN_VERSION (the number of the publication), and on its standard input
//   {"version": N, "files": [{"key": "...", "path": "..."}], "keys": ["..."], "uids": [N]}
// with the files and keys that were replaced or removed; the paths include the root prefix. A list
// that is null is not known, or longer than 10,000: take all of its kind for changed. After an
// unfinished pull all three are null. What a program writes goes to the log.
//
// False when something failed; `failures` gets a sentence for each ("the hook PATH ended with
// status 2"), and each is a log line. The others are done all the same. Maps and flags that could
// not be made are made by the next call; a program that failed is not run again for this pull.
MDOMAIN_EXPORT bool FollowPull(const PullStart& start, const korvmailserver::PullReport& report,
                               std::vector<std::string>& failures);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_FOLLOW_PULL_H
