// Which addresses may have another owner since somebody looked last: a log that the domain database
// keeps itself.
//
// Triggers in the file write it within the transaction of the change, whichever program makes it,
// so nothing is missed and nothing is logged that was rolled back. They are made when the first
// follower asks for them; without one no change pays for them. A follower brings what it keeps in
// line, and the log is emptied once all have.
//
// Over the process-wide handler. True on success; a failure is false and one error line, after
// SQLite's reason.
#ifndef LIB_DOMAIN_DB_ADDRESS_CHANGE_H
#define LIB_DOMAIN_DB_ADDRESS_CHANGE_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace MDOMAIN::DB::INTERNAL {

struct AddressChange {
  int domain_idx = -1;
  // A name that the domain got or lost; else an alias of the domain, in any letter case, that
  // somebody got, lost or may have under other conditions.
  bool is_name = false;
  std::string text;

  AddressChange(int idx, bool name, std::string changed)
      : domain_idx(idx), is_name(name), text(std::move(changed)) {}
};

// Whether the file keeps the log.
bool AreChangesLogged(bool& are_logged);
// From now on it does, or, once the last follower is forgotten, no longer.
bool StartChangeLog();
bool ForgetFollower(const std::string& follower);
// In a copy of a model: nobody follows it. Over a connection of its own, without a log line.
bool ForgetFollowersIn(const std::string& path);
// Whether something stands in it; never where it is not kept.
bool HasAddressChanges(bool& has_changes);
// Adds what stands in the log, each once, ordered; `is_whole` is false when that is more than
// `most`, and then nothing is added.
bool ListAddressChanges(size_t most, std::vector<AddressChange>& changes, bool& is_whole);
// Empties the log. Within the BatchScope in which it was read and nobody else could write.
bool ForgetAddressChanges();

// What a follower wrote down about what it keeps; empty without one. The log must be kept.
bool GetFollowerState(const std::string& follower, std::string& state);
bool SetFollowerState(const std::string& follower, const std::string& state);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_ADDRESS_CHANGE_H
