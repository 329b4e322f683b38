// Bringing a registry of address owners to other rows where it lies, by writing what differs.
#ifndef LIB_DOMAIN_DB_OWNER_UPDATE_H
#define LIB_DOMAIN_DB_OWNER_UPDATE_H

#include <string>
#include <vector>

#include "lib-domain/record/address_part.h"

struct sqlite3;

namespace MDOMAIN::DB::INTERNAL {

// Makes the rows of the registry at `path`, and the state that it remembers (user_version), those
// given, as one transaction; of rows with one key the first counts. Where nothing differs nothing
// is written. Who has the file open sees it before or after, and waits at most while the end of the
// transaction is written. False, the file as it was and nothing logged, where it is better made
// anew: it is missing, no registry or of another owner or mode, another program has it locked, or a
// text holds a zero byte.
bool UpdateOwners(const std::string& path, const std::vector<RECORD::DomainPart>& domains,
                  const std::vector<RECORD::LocalPart>& local_parts, int built_from);

// For a connection that writes: pages that changed stay in memory until the end. To write one
// before shuts readers out from then on.
constexpr const char* kKeepPages = "PRAGMA cache_spill = 0";

// Whether a registry as the store makes it stands at the path, a file with its owner and mode, and
// whether the open file is one: then it may be written where it lies.
bool IsOwnRegistryFile(const std::string& path);
bool IsOwnRegistry(sqlite3* registry);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_OWNER_UPDATE_H
