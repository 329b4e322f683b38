#include "lib-domain/insight/reading.h"

#include <algorithm>
#include <map>

#include "lib-domain/api/domain.h"
#include "lib-domain/base/domain_name.h"
#include "lib-domain/control/group.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/look_up.h"
#include "platform/include/nodes.h"
#include "platform/include/smtp_conf.h"

namespace MDOMAIN::INSIGHT {

using mdomain::Account;
using mdomain::Role;

std::string KnownDomain::Title() const {
  return std::to_string(idx) + " (" + name + ")";
}

bool KnownDomain::HasName(const std::string& other) const {
  const std::string wanted = BASE::AsciiForm(other);
  return BASE::AsciiForm(name) == wanted ||
         std::any_of(additional_names.begin(), additional_names.end(),
                     [&](const std::string& own) { return BASE::AsciiForm(own) == wanted; });
}

std::vector<KnownDomain> ListKnownDomains() {
  std::vector<RECORD::Domain> records;
  std::map<int, std::vector<std::string>> names;
  API::Domain api;
  RequireRead(api.ListNames(records) && api.ListAllAdditionalDomains(names), "the domains");
  std::vector<KnownDomain> domains;
  for (const RECORD::Domain& record : records) {
    const int idx = record.GetDomainIdx();
    domains.push_back({idx, record.GetDomainName(), record.IsPrimary(), names[idx]});
  }
  return domains;
}

Role RoleOf(const std::string& text) {
  return text == "domain_admin" ? Role::kDomainAdmin
         : text == "normal"     ? Role::kNormal
                                : Role::kNone;
}

std::string TextOf(Role role) {
  return role == Role::kDomainAdmin ? "domain_admin" : role == Role::kNormal ? "normal" : "";
}

std::vector<RECORD::DomainUser> FindInDomain(int domain_idx, unsigned int uid) {
  std::vector<RECORD::DomainUser> found;
  RequireRead(DB::INTERNAL::AddDomainUser(domain_idx, uid, found), "the users of the domain");
  return found;
}

std::vector<Account> ListGroupsOf(const std::vector<unsigned int>& gids) {
  std::vector<Account> groups;
  if (gids.empty()) {
    return groups;
  }
  DB::GroupDBFilter filter;
  filter.SetGIDs(gids);
  std::vector<RECORD::Group> records;
  RequireRead(CONTROL::Group().List(filter, records), "the groups");
  for (const RECORD::Group& record : records) {
    groups.push_back({record.GetGID(), record.GetGroupName()});
  }
  return groups;
}

std::vector<Account> ListRoleGroups(int domain_idx, unsigned int uid) {
  std::vector<unsigned int> gids;
  RequireRead(DB::DomainUser().FindBeingEffectedGroups(domain_idx, uid, gids),
              "the groups of the domain");
  return ListGroupsOf(gids);
}

bool WasTakenOut(int domain_idx, unsigned int uid) {
  std::vector<int> idxs;
  RequireRead(DB::INTERNAL::ListTakenOutOf(uid, idxs), "the removed users");
  return std::find(idxs.begin(), idxs.end(), domain_idx) != idxs.end();
}

std::map<int, std::string> PublishedDomains() {
  SmtpConf settings;
  return settings.LoadSettings() < 0 ? std::map<int, std::string>() : settings.GetMultiDomainMap();
}

bool PullsDomains() {
  korvmailserver::NodeStanding standing;
  return korvmailserver::ReadNodeStanding(standing) &&
         (standing.role == korvmailserver::NodeRole::kMember ||
          standing.role == korvmailserver::NodeRole::kReplaced);
}

}  // namespace MDOMAIN::INSIGHT
