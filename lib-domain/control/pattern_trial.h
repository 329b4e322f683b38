// What an alias pattern would give the users of a domain, before it is saved or beside what they
// have. Nothing is written.
#ifndef LIB_DOMAIN_CONTROL_PATTERN_TRIAL_H
#define LIB_DOMAIN_CONTROL_PATTERN_TRIAL_H

#include <cstddef>
#include <string>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "platform/include/export.h"

namespace MDOMAIN::CONTROL::INTERNAL {

struct TriedAlias {
  RECORD::DomainUser user;  // as stored, with the aliases of today
  std::string made;         // from the pattern; empty when a token has no value
  std::string missing;      // that token, with its brackets; empty when each has one
  std::string alias;        // what the user would get; empty: no address
  // Whether `alias` is what the pattern made, and not the account name in its place.
  bool is_from_pattern = false;
  bool is_entry = false;  // `alias` is the name of an address with several members
  // Others who would get the alias too, or have it today: their number, and the first names.
  size_t rivals = 0;
  std::vector<std::string> rival_names;

  bool Collides() const { return is_entry || rivals > 0; }
};

constexpr size_t kNamedRivals = 10;

// Adds an element for everybody who has a role in the domain, by uid. False with a log line when
// the users cannot be read, the account system does not answer, or the pattern cannot be used.
MDOMAIN_EXPORT bool TryPattern(int domain_idx, const std::string& pattern,
                               std::vector<TriedAlias>& tried);

// Adds the uids of those to whom TryPattern gives an alias that they do not have, ascending. False
// as above.
MDOMAIN_EXPORT bool ListDrifting(int domain_idx, const std::string& pattern,
                                 std::vector<unsigned int>& uids);

// Whether the user has what the pattern gives, ASCII case ignored; also when it gives nothing.
MDOMAIN_EXPORT bool HasTriedAlias(const TriedAlias& tried);

// Why the alias is not what the pattern made: "no value for <s>"; empty when it is.
MDOMAIN_EXPORT std::string WhyNotByPattern(const TriedAlias& tried);

// What is wrong with a pattern that would give nobody an address, to be said behind it: " makes no
// local parts of addresses". Empty for any other, and for a text without placeholders.
MDOMAIN_EXPORT std::string WhyUselessPattern(const std::string& pattern);

struct TriedCounts {
  size_t users = 0;
  size_t from_account = 0;
  size_t without_address = 0;
  size_t colliding = 0;

  void Add(const TriedAlias& one) {
    ++users;
    from_account += !one.is_from_pattern && !one.alias.empty() ? 1 : 0;
    without_address += one.alias.empty() ? 1 : 0;
    colliding += one.Collides() ? 1 : 0;
  }
  size_t FromPattern() const { return users - from_account - without_address; }
};

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_PATTERN_TRIAL_H
