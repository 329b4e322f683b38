// The handlers of mdomain node, and what several of them do.
#ifndef TOOLS_MDOMAIN_NODE_H
#define TOOLS_MDOMAIN_NODE_H

#include <string>
#include <vector>

#include "lib-domain/sync/follow_pull.h"
#include "platform/include/nodes.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/time_text.h"

namespace mdomain {

// node_roles.cpp
void ManageHere(Call& call);
void JoinManager(Call& call);
void TakeOver(Call& call);
// Makes this machine one that pulls, and keeps its files aside; gives the folder. kFailed where
// nothing is published; refused where this machine has what the store lacks, unless it is to be
// discarded.
std::string BecomePulling(const korvmailserver::NodeStanding& standing, bool discard);

// node_pull.cpp
struct Pulled {
  bool is_complete = false;
  korvmailserver::PullReport report;
  std::vector<std::string> failures;  // of what follows a pull, a sentence each
};
// Pulls, makes the maps of blind copies anew where they follow from something that was replaced,
// and does what else follows a pull. The caller holds the lock.
Pulled PullAndFollow(bool accept_older);
// Ends the command with kRefused where what is published was too old to be taken.
void RequireNotOlder(const korvmailserver::PullReport& report);
// Ends the command with kFailed unless all was pulled and followed.
void RequirePulled(const Pulled& pulled);
// A record for each file and each key with what became of it; without those that are unchanged
// where `only_changed`.
Json::Value PulledRows(const korvmailserver::PullReport& report, bool only_changed);
void PullHere(Call& call);

// node_status.cpp
void ShowMachines(Call& call);
void TellRole(Call& call);
// node_check.cpp
void CheckMachine(Call& call);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_NODE_H
