// The e-mail owner registry as a copy of the domain database's addresses.
//
// Any program may fill the registry; these operations fill it from the domain database and tell
// where it has fallen behind.
#ifndef LIB_DOMAIN_SYNC_OWNER_REGISTRY_H
#define LIB_DOMAIN_SYNC_OWNER_REGISTRY_H

#include <functional>
#include <string>
#include <vector>

#include "lib-domain/record/address_part.h"
#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

struct MDOMAIN_LAYOUT(v1_1) OwnerRegistryContent {
  std::vector<RECORD::DomainPart> domains;
  std::vector<RECORD::LocalPart> local_parts;
  // The state of the domain database that was read, or an older one; 0 when not known. A registry
  // of an unknown state is left to whoever wrote it.
  int built_from = 0;
};

// What the registry should hold now: every name of every domain in both spellings, and every alias
// of every user with a role in the domain once, with the owner whose alias is not flagged when
// several want it. False with one log line when the domain database cannot be read.
MDOMAIN_EXPORT bool CollectOwners(OwnerRegistryContent& content);

// Makes `content` the registry at `path`, so that a reader sees the old or the new one, whole, also
// when several programs do so at once: the last one counts. Where little differs that is written
// as one transaction, and nothing where nothing does; else a new file is renamed over the old one.
// Waits up to 10 seconds for a writer of the old one. The file remembers `built_from` in its
// user_version. False with one log line, and the old file untouched.
MDOMAIN_EXPORT bool ReplaceOwnerRegistry(const std::string& path,
                                         const OwnerRegistryContent& content);

// Calls `use_domain`, then `use_local_part`, for each of the registry's rows that CollectOwners
// does not give, in stored order: another owner, an alias or a domain that is gone. The comparison
// ignores ASCII case, as look-ups do. A missing registry has no rows. Little of either is kept, and
// who writes to one of them may have to wait. When one of them cannot be read there is one log
// line, and some rows may have been handed out.
enum class OwnerCheck { kDone, kModelUnread, kRegistryUnread };
MDOMAIN_EXPORT OwnerCheck FindStaleOwners(
    const std::string& path, const std::function<void(const RECORD::DomainPart& part)>& use_domain,
    const std::function<void(const RECORD::LocalPart& part)>& use_local_part);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_OWNER_REGISTRY_H
