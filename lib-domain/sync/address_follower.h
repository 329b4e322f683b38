// Something that is made from the addresses of the model and follows each change of them.
#ifndef LIB_DOMAIN_SYNC_ADDRESS_FOLLOWER_H
#define LIB_DOMAIN_SYNC_ADDRESS_FOLLOWER_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/db/special_address.h"
#include "lib-domain/record/address_part.h"
#include "lib-domain/sync/owner_registry.h"

namespace MDOMAIN::UTILS::INTERNAL {

// What may differ from before, and what it is now.
struct ChangedAddresses {
  std::vector<std::pair<int, std::string>> aliases;  // domain and alias, in any letter case
  std::vector<RECORD::LocalPart> owners;             // of those that have one
  // Names that a domain got or lost, in both spellings, and all that domains have.
  std::vector<RECORD::DomainPart> names;
  std::vector<RECORD::DomainPart> all_names;

  // Addresses that no single user has, all of them; those that changed are among the aliases.
  DB::INTERNAL::SpecialAddresses special;
};

// Its state is a text that the domain database keeps, by which it is known again.
class AddressFollower {
 public:
  virtual ~AddressFollower() = default;

  virtual const char* Name() const = 0;  // under which the state is kept
  virtual std::string Place() const = 0;
  // Whether nobody wants it to follow any more. False with a log line when it cannot be told.
  virtual bool IsLeftAlone(bool& is_left_alone) const = 0;
  // Whether it is what `state` says. False with a log line when it cannot be told.
  virtual bool IsInState(const std::string& state, bool& is_in_state) const = 0;
  // Brings what changed in line, and gives the new state. False, nothing logged, where it is not
  // what `state` says, or has to be built for another reason. `exactly`: also where others wrote to
  // it what does not concern these changes.
  virtual bool Apply(const ChangedAddresses& changes, bool exactly, std::string& state) const = 0;
  // Makes it what the content says. False with a log line, and as it was.
  virtual bool Build(const OwnerRegistryContent& content,
                     const DB::INTERNAL::SpecialAddresses& special, std::string& state) const = 0;
};

std::unique_ptr<AddressFollower> OwnerFollower();
// A registry of this machine alone, in which Dovecot looks owners up where it may pull: a pull puts
// another file in the place of the registry, and Dovecot goes on with the one that it has open.
std::unique_ptr<AddressFollower> LoginFollower();
std::unique_ptr<AddressFollower> PostfixFollower();

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_SYNC_ADDRESS_FOLLOWER_H
