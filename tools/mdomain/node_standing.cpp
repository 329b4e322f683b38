// The machine's own memory is asked first; only one that manages asks the store, once.
#include "tools/mdomain/node_standing.h"

#include "tools/mdomain/log_view.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using korvmailserver::NodeRole;
using korvmailserver::NodeStanding;
using korvmailserver::StoreStanding;

NodeStanding OwnStanding() {
  NodeStanding standing;
  if (!korvmailserver::ReadNodeStanding(standing)) {
    throw Failure(kFailed,
                  "what this machine is among those that share the key store could not be read, "
                  "nothing was changed");
  }
  return standing;
}

[[noreturn]] void RefuseReplaced(const std::string& manager) {
  throw Failure(kRefused, "another machine took the domains over, " + manager +
                              ": change them there and let this machine pull (mdomain node join), "
                              "or manage them here again (mdomain node take-over)");
}

// The manager as far as this machine knows.
std::string Remembered(const NodeStanding& standing) {
  return standing.manager.empty() ? "another machine" : standing.manager;
}

void RequireNotReplaced() {
  StoreStanding store;
  bool answers = false;
  {
    const HeldLog log;
    answers = korvmailserver::ReadStoreStanding(store);
  }
  if (answers && IsForeign(store)) {
    RefuseReplaced(ManagerOf(store));
  }
}

}  // namespace

void RequireManager() {
  const NodeStanding standing = OwnStanding();
  switch (standing.role) {
    case NodeRole::kAlone:
      return;
    case NodeRole::kManager:
      RequireNotReplaced();
      return;
    case NodeRole::kMember:
      throw Failure(kRefused, "the domains are managed on " + Remembered(standing) +
                                  ": change them there, or make this machine the one that manages "
                                  "them (mdomain node take-over)");
    case NodeRole::kReplaced:
      RefuseReplaced(Remembered(standing));
    case NodeRole::kUndecided:
      throw Failure(kRefused,
                    "nobody has said which machine manages the domains: mdomain node manage if it "
                    "is this one, mdomain node join if it is another");
  }
}

bool IsAlone() {
  return OwnStanding().role == NodeRole::kAlone;
}

bool IsMemberElseManager() {
  const bool is_member = OwnStanding().role == NodeRole::kMember;
  if (!is_member) {
    RequireManager();
  }
  return is_member;
}

std::string HowToPublish() {
  NodeStanding standing;
  const bool is_replaced =
      korvmailserver::ReadNodeStanding(standing) && standing.role == NodeRole::kReplaced;
  return is_replaced ? "mdomain node take-over --keep publishes it, mdomain node join --discard "
                       "drops it"
                     : "mdomain publish or the next change publishes it";
}

NodeStanding SharedStanding() {
  NodeStanding standing = OwnStanding();
  if (standing.role == NodeRole::kAlone) {
    throw Failure(kRefused,
                  "this machine shares its key store with no other: [keystore] of host.ini says "
                  "backend = redis where it does");
  }
  return standing;
}

StoreStanding StoreNow() {
  StoreStanding store;
  if (!korvmailserver::ReadStoreStanding(store)) {
    throw Failure(kFailed, "the key store could not be asked, nothing was changed");
  }
  return store;
}

std::string ManagerOf(const StoreStanding& store) {
  const std::string term = " (term " + std::to_string(store.term) + ")";
  return store.manager + term +
         (!store.is_own && store.manager == korvmailserver::NodeName()
              ? ", which goes by this machine's name"
              : "");
}

}  // namespace mdomain
