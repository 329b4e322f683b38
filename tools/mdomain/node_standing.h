// What this machine is among those that share a key store, and who may change the domains.
#ifndef TOOLS_MDOMAIN_NODE_STANDING_H
#define TOOLS_MDOMAIN_NODE_STANDING_H

#include <string>

#include "platform/include/nodes.h"

namespace mdomain {

// Ends the command with kRefused where another machine manages the domains, or where nobody has
// said yet whether this one does. A store that is away is no obstacle for the one that manages.
void RequireManager();

// Whether this machine pulls the domains; ends the command as RequireManager where it does not pull
// and does not manage.
bool IsMemberElseManager();

// Whether it shares its key store with no other.
bool IsAlone();

// What brings a change to the other machines that was made here and not published.
std::string HowToPublish();

// What this machine remembers; kRefused where its key store is not shared.
korvmailserver::NodeStanding SharedStanding();

// What the store says now; kFailed, with nothing changed, when it does not answer.
korvmailserver::StoreStanding StoreNow();

// "second (term 3)"; says so when it goes by this machine's name.
std::string ManagerOf(const korvmailserver::StoreStanding& store);

// Whether another machine manages.
inline bool IsForeign(const korvmailserver::StoreStanding& store) {
  return !store.is_empty && !store.is_own;
}

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_NODE_STANDING_H
