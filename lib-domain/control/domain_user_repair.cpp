// What a refresh repairs: flags of colliding aliases, and users who lost their role.

#include <utility>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/domain_user.h"
#include "lib-domain/control/domain_user_flags.h"
#include "lib-domain/control/entry_names.h"
#include "lib-domain/db/domain.h"
#include "lib-domain/db/model_image.h"

namespace MDOMAIN::CONTROL {

namespace {

// Of more of them everybody is read.
constexpr size_t kFewUsers = 10000;

// The uids in order, each once: the listing names a user once for each alias.
std::vector<unsigned int> EachOnce(const std::vector<unsigned int>& uids) {
  std::unordered_set<unsigned int> seen;
  std::vector<unsigned int> once;
  for (unsigned int uid : uids) {
    if (seen.insert(uid).second) {
      once.push_back(uid);
    }
  }
  return once;
}

bool ListAllDomains(std::vector<int>& domain_idxs) {
  std::vector<RECORD::Domain> domains;
  if (!DB::Domain().ListNames(domains)) {
    LOG_ERROR("Failed to List all domains");
    return false;
  }
  domain_idxs.reserve(domains.size());
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
  }
  return true;
}

}  // namespace

bool DomainUser::UpdateDuplicateAlias(const std::vector<int>& domain_idxs) {
  if (domain_idxs.empty()) {
    return true;
  }
  // Lists users instead of aliases because the role decides, too.
  std::vector<RECORD::DomainUser> users;
  if (!_GetCompareDBDomainUsers(domain_idxs, users)) {
    LOG_ERROR("Failed to ListDomainUsersAliases");
    return false;
  }
  return INTERNAL::SettleFlags(std::move(users));
}

bool DomainUser::UpdateAllDuplicateAlias() {
  std::vector<int> domain_idxs;
  return ListAllDomains(domain_idxs) && UpdateDuplicateAlias(domain_idxs);
}

// An alias that stands once in its domain, is not flagged and is no entry's name keeps its flag,
// and nobody else's depends on it.
bool DomainUser::UpdateAllDuplicateAlias(const DB::INTERNAL::ModelImage& image) {
  std::vector<int> domain_idxs;
  if (!image.IsKnown() || image.UidsWithFlagsInQuestion().size() > kFewUsers) {
    return UpdateAllDuplicateAlias();
  }
  INTERNAL::EntryNames entries;
  std::vector<unsigned int> uids = image.UidsWithFlagsInQuestion();
  if (!entries.Read() || !entries.AddHolders(uids)) {
    return false;
  }
  if (uids.empty()) {
    return true;
  }
  if (uids.size() > kFewUsers) {  // those who have names of entries, too
    return UpdateAllDuplicateAlias();
  }
  if (!ListAllDomains(domain_idxs)) {
    return false;
  }
  if (domain_idxs.empty()) {
    return true;
  }
  std::vector<RECORD::DomainUser> users;
  if (!store_.ListHolders(domain_idxs, uids, users)) {
    LOG_ERROR("Failed to ListDomainUsersAliases");
    return false;
  }
  return INTERNAL::SettleFlags(std::move(users));
}

bool DomainUser::CreateUsersRolesForNonGroupUsers() {
  std::map<int, std::vector<unsigned int>> uids_by_domain;
  if (!store_.GetUsersWithoutRole(uids_by_domain)) {
    LOG_ERROR("Failed to GetUsersWithoutRole");
    return false;
  }
  std::vector<RECORD::DomainUserRole> roles;
  for (const auto& [domain_idx, listed_uids] : uids_by_domain) {
    const std::vector<unsigned int> uids = EachOnce(listed_uids);
    LOG_NOTICE("users without roles in domain [%d]: [%s]", domain_idx,
               BASE::Join(uids, ",").c_str());
    for (unsigned int uid : uids) {
      roles.emplace_back(domain_idx, uid, "normal", true);
    }
  }
  if (!store_.CreateUsersRoles(roles)) {
    LOG_ERROR("Failed to CreateUsersRoles");
    return false;
  }
  return true;
}

bool DomainUser::RemoveUsersWithoutRole() {
  std::map<int, std::vector<unsigned int>> uids_by_domain;
  if (!store_.GetUsersWithoutRole(uids_by_domain)) {
    LOG_ERROR("Failed to GetUsersWithoutRole");
    return false;
  }
  bool ok = true;
  for (const auto& [domain_idx, listed_uids] : uids_by_domain) {
    const std::vector<unsigned int> uids = EachOnce(listed_uids);
    const std::string uid_text = BASE::Join(uids, ",");
    if (Delete(domain_idx, uids)) {
      LOG_NOTICE("Deleted users [%s] in domain_id: [%d]", uid_text.c_str(), domain_idx);
    } else {
      LOG_ERROR("Failed to delete users [%s] in domain_id: [%d]", uid_text.c_str(), domain_idx);
      ok = false;
    }
  }
  return ok;
}

}  // namespace MDOMAIN::CONTROL
