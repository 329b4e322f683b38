// The registry of address owners.
#include <algorithm>
#include <utility>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/change_counter.h"
#include "lib-domain/db/owner_follow.h"
#include "lib-domain/sync/address_follower.h"

namespace MDOMAIN::UTILS::INTERNAL {

namespace {

using DB::INTERNAL::OwnerChanges;
using DB::INTERNAL::OwnerState;

// What the changed names, without letter case, mean now.
void AddNames(const ChangedAddresses& changes, OwnerChanges& rows) {
  const auto key = [](const RECORD::DomainPart& part) {
    return BASE::ToLowerAscii(part.GetDomainName());
  };
  for (const RECORD::DomainPart& name : changes.names) {
    rows.names.push_back(name.GetDomainName());
  }
  for (const RECORD::DomainPart& part : changes.all_names) {
    if (std::any_of(changes.names.begin(), changes.names.end(),
                    [&](const RECORD::DomainPart& name) { return key(name) == key(part); })) {
      rows.domains.push_back(part);
    }
  }
}

class Owners : public AddressFollower {
 public:
  Owners(const char* name, std::string place) : name_(name), place_(std::move(place)) {}

  const char* Name() const override { return name_; }
  std::string Place() const override { return place_; }

  // It was removed, or somebody else fills it now.
  bool IsLeftAlone(bool& is_left_alone) const override {
    OwnerState found;
    // One that cannot be read is made anew.
    is_left_alone = DB::INTERNAL::ReadOwnerState(Place(), found) && found.built_from == 0;
    return true;
  }

  bool IsInState(const std::string& state, bool& is_in_state) const override {
    OwnerState found;
    is_in_state = DB::INTERNAL::ReadOwnerState(Place(), found) &&
                  found.built_from == DB::INTERNAL::OwnerStateOf(state).built_from;
    return true;
  }

  bool Apply(const ChangedAddresses& changes, bool exactly, std::string& state) const override {
    OwnerChanges rows;
    rows.aliases = changes.aliases;
    rows.owners = changes.owners;
    AddNames(changes, rows);
    OwnerState now = DB::INTERNAL::OwnerStateOf(state);
    int built_from = 0;
    if (now.built_from == 0 || !DB::GetChangeCounter(built_from) ||
        !DB::INTERNAL::ApplyOwnerChanges(Place(), rows, built_from, now) ||
        (exactly && (now.counter == 0 || !DB::INTERNAL::CountOwners(Place(), now)))) {
      return false;
    }
    state = now.Text();
    return true;
  }

  bool Build(const OwnerRegistryContent& content, const DB::INTERNAL::SpecialAddresses& /*special*/,
             std::string& state) const override {
    OwnerState now;
    if (!ReplaceOwnerRegistry(Place(), content) || !DB::INTERNAL::ReadOwnerState(Place(), now) ||
        !DB::INTERNAL::CountOwners(Place(), now)) {
      return false;
    }
    state = now.Text();
    return true;
  }

 private:
  const char* name_;
  std::string place_;
};

}  // namespace

std::unique_ptr<AddressFollower> OwnerFollower() {
  return std::make_unique<Owners>("owners", PATHS::EmailOwnerDb());
}

std::unique_ptr<AddressFollower> LoginFollower() {
  return std::make_unique<Owners>("logins", PATHS::LoginDb());
}

}  // namespace MDOMAIN::UTILS::INTERNAL
