// Bringing single rows of a registry of address owners in line where it lies.
#ifndef LIB_DOMAIN_DB_OWNER_FOLLOW_H
#define LIB_DOMAIN_DB_OWNER_FOLLOW_H

#include <string>
#include <utility>
#include <vector>

#include "lib-domain/record/address_part.h"

namespace MDOMAIN::DB::INTERNAL {

// Which state of the domain database a registry was built from (user_version; 0: none that it
// remembers), and the change counter of its file, by which one tells whether anybody wrote to it
// since. Counter 0: somebody did.
struct OwnerState {
  int built_from = 0;
  int counter = 0;
  // How many rows it has then; below 0 where nobody counted them.
  long domains = -1;
  long local_parts = -1;

  bool IsCounted() const { return domains >= 0 && local_parts >= 0; }
  std::string Text() const;
  // The number of rows is no part of it.
  bool operator==(const OwnerState& other) const {
    return built_from == other.built_from && counter == other.counter;
  }
};
OwnerState OwnerStateOf(const std::string& text);  // zeros for what is none

// False with one log line when the file cannot be read. A missing one has the state of zeros.
bool ReadOwnerState(const std::string& path, OwnerState& state);

// For each key, whose ASCII case does not count, the rows that it is to have from now on.
struct OwnerChanges {
  std::vector<std::pair<int, std::string>> aliases;  // domain and local part
  std::vector<RECORD::LocalPart> owners;
  std::vector<std::string> names;
  std::vector<RECORD::DomainPart> domains;

  bool IsEmpty() const { return aliases.empty() && names.empty(); }
};

// Brings these keys in line, as one transaction, where the registry at `path` was built from
// `state`, which is then the new one: built from `built_from` when something was written. Nothing
// is written where nothing differs. False, the file as it was and nothing logged, where
// UpdateOwners would be, and where the registry was built from something else.
bool ApplyOwnerChanges(const std::string& path, const OwnerChanges& changes, int built_from,
                       OwnerState& state);

// Sets the numbers of rows in `state`, without reading all of them where they are those of a state
// in which the registry still is. False with one log line.
bool CountOwners(const std::string& path, OwnerState& state);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_OWNER_FOLLOW_H
