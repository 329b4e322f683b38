// The administrator's own programs that run after a pull; follow_pull.h describes them.
#ifndef LIB_DOMAIN_SYNC_PULL_HOOKS_H
#define LIB_DOMAIN_SYNC_PULL_HOOKS_H

#include <string>
#include <vector>

namespace MDOMAIN::UTILS::INTERNAL {

// Runs them one after the other, each with `input` on its standard input and the publication's
// number in its environment. A missing folder is success. False when one was refused or failed:
// `failures` gets a sentence for each, which is logged as a warning.
bool RunPullHooks(long long version, const std::string& input, std::vector<std::string>& failures);

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_PULL_HOOKS_H
