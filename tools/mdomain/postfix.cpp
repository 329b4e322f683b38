// mdomain postfix: the maps of domains and addresses that Postfix reads.
#include "lib-domain/base/paths.h"
#include "lib-domain/sync/follow_addresses.h"
#include "tools/mdomain/command.h"

namespace mdomain {
namespace {

void Maps(Call& call) {
  if (!MDOMAIN::UTILS::BuildPostfixMaps()) {
    throw Failure(kFailed, "the maps for Postfix could not be made; those of before are in place");
  }
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
         "From then on they follow every change by themselves. Postfix sees a change at once, and "
         "always a whole map.",
         Effect::kChanges,
         {},
         Maps},
    },
});

}  // namespace
}  // namespace mdomain
