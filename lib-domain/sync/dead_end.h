// Addresses that go to addresses of our own domains, and where that leads to nobody.
#ifndef LIB_DOMAIN_SYNC_DEAD_END_H
#define LIB_DOMAIN_SYNC_DEAD_END_H

#include <string>
#include <vector>

#include "platform/include/alias.h"
#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

struct DeadEnd {
  std::string address;  // of an entry of the alias table, postmaster or abuse, at its domain's name
  // Where it goes, an address in a domain of ours; empty: to no member at all.
  std::string receiver;
  bool is_loop;  // the receiver leads back to it; else nobody has it
};

// Of all entries, and of postmaster and abuse where they go to somebody. What stands behind a "+"
// in a receiver does not count where nobody has it as a whole. False with a log line when something
// cannot be read.
MDOMAIN_EXPORT bool ListDeadEnds(std::vector<DeadEnd>& dead_ends);
// Of this entry alone, as if it were stored.
bool ListDeadEnds(const ::Alias::Entry& entry, std::vector<DeadEnd>& dead_ends);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_DEAD_END_H
