// mdomain postfix: the maps of domains and addresses that Postfix reads.
#include "tools/mdomain/postfix.h"

#include <cstdlib>

#include "lib-domain/base/paths.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/postfix_maps.h"
#include "tools/mdomain/node_standing.h"

namespace mdomain {
namespace {

void Maps(Call& call) {
  MakePostfixMaps();
  Json::Value record;
  record["domains"] = "lmdb:" + MDOMAIN::PATHS::PostfixDomains();
  record["addresses"] = "lmdb:" + MDOMAIN::PATHS::PostfixAddresses();
  call.out().Done(record, "the maps for Postfix follow every change now");
}

const Register kPostfix({
    "postfix",
    "Postfix, which receives the mail of the domains",
    {
        {"maps",
         "Make the maps of domains and addresses",
         "From then on they follow every change by themselves, and on a machine that pulls every "
         "pull. Postfix sees a change at once, and always a whole map.",
         Effect::kChangesHere,
         {},
         Maps},
    },
});

}  // namespace

void RequireOwnConfig(const Call& call) {
  if (getenv("MDOMAIN_ROOT") != nullptr && !call.Has("--config")) {
    throw Failure(kUsage,
                  "with --root this wants --config: the machine's own files stay as they "
                  "are");
  }
}

void MakePostfixMaps() {
  korvmailserver::NodeStanding standing;
  if (!korvmailserver::ReadNodeStanding(standing)) {
    throw Failure(kFailed, "it cannot be told whether this machine manages the domains");
  }
  const bool is_member = standing.role == korvmailserver::NodeRole::kMember;
  if (!is_member) {
    RequireManager();
  }
  if (is_member ? !MDOMAIN::UTILS::MakePulledPostfixMaps() : !MDOMAIN::UTILS::BuildPostfixMaps()) {
    throw Failure(kFailed, "the maps for Postfix could not be made; those of before are in place");
  }
}

}  // namespace mdomain
