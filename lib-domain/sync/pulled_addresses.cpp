#include "lib-domain/sync/pulled_addresses.h"

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/sync/address_follower.h"
#include "lib-domain/sync/compiled_maps.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/owner_content.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/files.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::UTILS {

namespace {

using korvmailserver::PostfixMap;

// The model, which is not written here, cannot tell.
bool MarkPulledMaps() {
  const std::string mark = PATHS::PulledMapsMark();
  if (!postara::sdk::Exist(mark) && KLIBCFileTouch(mark.c_str()) != 0) {
    LOG_ERROR("Failed to make [%s]: %m", mark.c_str());
    return false;
  }
  return true;
}

// The state goes to the model on a machine that writes it.
bool MakeMaps(const OwnerRegistryContent& owners) {
  MailTarget target;
  DB::INTERNAL::SpecialAddresses special;
  std::string state;
  return target.Read() && CollectSpecialAddresses(target, special) &&
         INTERNAL::PostfixFollower()->Build(owners, special, state) && MarkPulledMaps() &&
         CompilePostfixMaps();
}

bool MakeLogins(const OwnerRegistryContent& owners) {
  std::string state;
  return INTERNAL::LoginFollower()->Build(owners, {}, state);
}

bool Exists(const std::string& map) {
  return postara::sdk::Exist(PostfixMap(map).File());
}

// One was removed, so that Postfix puts off all mail, or not compiled.
bool LacksMap() {
  bool is_behind = false;
  return HasPostfixMaps() &&
         (!Exists(PATHS::PostfixAddresses()) || !Exists(PATHS::PostfixDomains()) ||
          !AreCompiledMapsBehind(is_behind) || is_behind);
}

}  // namespace

bool HasPostfixMaps() {
  return Exists(PATHS::PostfixAddresses()) || postara::sdk::Exist(PATHS::PulledMapsMark());
}

bool HasLogins() {
  return postara::sdk::Exist(PATHS::LoginDb());
}

bool MakePulledPostfixMaps() {
  OwnerRegistryContent owners;
  return CollectOwners(owners) && MakeMaps(owners);
}

bool MakePulledLogins() {
  OwnerRegistryContent owners;
  return CollectOwners(owners) && MakeLogins(owners);
}

bool FollowPulledAddresses(bool is_nothing_new, std::vector<std::string>& failures) {
  const bool wants_maps = is_nothing_new ? LacksMap() : HasPostfixMaps();
  const bool wants_logins = !is_nothing_new && HasLogins();
  if (!wants_maps && !wants_logins) {
    return true;
  }
  OwnerRegistryContent owners;
  const bool are_read = CollectOwners(owners);
  const bool has_maps = !wants_maps || (are_read && MakeMaps(owners));
  const bool has_logins = !wants_logins || (are_read && MakeLogins(owners));
  if (!has_maps) {
    failures.emplace_back("the maps for Postfix could not be made; those of before are in place");
  }
  if (!has_logins) {
    failures.emplace_back(
        "the registry that Dovecot reads could not be made; the one of before is in place");
  }
  return has_maps && has_logins;
}

}  // namespace MDOMAIN::UTILS
