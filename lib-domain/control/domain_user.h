// Whole operations on the users of domains: adding, previewing, changing, removing, repairing.
//
// A user of a domain has aliases there and a role, either a direct one or one through groups. Every
// operation stops at the first step that fails, logs it and returns false; nothing is rolled back
// across steps. Users whose addresses change are announced to the SMTP side; an announcement that
// fails is logged and stops nothing. Aliases are compared within one domain, ignoring ASCII case.
//
// The sources, all of which log as lib-domain/control/domain_user: domain_user.cpp has the reads,
// domain_user_create.cpp adding and the preview, domain_user_set.cpp changes,
// domain_user_delete.cpp removal, domain_user_repair.cpp the passes of a refresh.
#ifndef LIB_DOMAIN_CONTROL_DOMAIN_USER_H
#define LIB_DOMAIN_CONTROL_DOMAIN_USER_H

#include <list>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB::INTERNAL {
class ModelImage;
}

namespace MDOMAIN::CONTROL {

// Given to DomainUser::Set in place of a role: the user's groups decide.
constexpr const char* kRoleOfGroups = "group";

class MDOMAIN_EXPORT DomainUser {
 public:
  // These forward to the store. Only users who hold a role are listed; the filter's offset and
  // limit count users, not aliases. ListWithExtraInfo and ForEach also tell who has no direct role.
  bool List(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users);
  bool ListWithExtraInfo(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users);
  bool ForEach(DB::DomainDBFilter& filter, const DB::DomainUser::UserVisitor& use);
  bool List(const int& domain_idx, std::list<std::string>& user_names);
  bool List(const int& domain_idx, std::vector<unsigned int>& uids);
  bool GetDomainUsersCount(DB::DomainDBFilter& filter, int& count);
  bool ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails);
  bool GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain);
  bool GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles);
  bool IsExists(const int& domain_idx, const std::string& user_name);
  bool IsAliasExist(const std::string& alias);
  bool GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids);
  bool RemoveUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs);

  // The user's aliases in the domain in stored order; an unknown user or none: true and empty.
  bool GetDomainUserAlias(const int& domain_idx, const unsigned int& uid,
                          std::vector<std::string>& aliases);
  bool GetDomainUserAlias(const int& domain_idx, const std::string& user_name,
                          std::vector<std::string>& aliases);

  // The account name of the alias's owner, one that is not flagged duplicated first; no owner: true
  // and empty. The alias may be any text.
  bool GetDomainAliasUser(const int& domain_idx, const std::string& alias, std::string& user_name);

  // The role that the user's groups give in the domain, whatever direct role the user has and
  // whether or not the user was removed from it; empty when none of the groups has one.
  bool GetResultGroupRole(const int& domain_idx, const unsigned int& uid, std::string& role);

  // Gives mirrored users the role "normal" in the domain, marked auto-added; a role they had is
  // replaced. Names that are not mirrored and internal accounts are skipped. CreateUsersAliases
  // adds their aliases.
  bool CreateFromUser(const int& domain_idx, const std::vector<std::string>& user_short_names);
  // The same from records. Users who are not mirrored yet are mirrored first.
  bool CreateFromBackend(const int& domain_idx, const std::vector<RECORD::User>& users);

  // Adds aliases to users of any domains; those that the user already has are dropped from
  // `aliases`, those that collide with another user's, or with an earlier one of the list, are
  // flagged in it and stored. Users who had been taken out of groups of the domain are given back
  // to them. An empty list does nothing.
  bool CreateUsersAliases(std::vector<RECORD::DomainUserAlias>& aliases);

  // Replaces role and aliases of users of any domains. The role "group" takes the user's direct
  // role away. A user given without any alias keeps the stored ones. Collisions are flagged in
  // `users`; a user with a collision with another stored or given user, or with an alias that is
  // another's account name, is appended to `conflicts` (once for each of the two) and written all
  // the same. A user who has an alias unflagged keeps it unless the other user has the smaller
  // role. False, with nothing written, when somebody is to get an alias that is an address with
  // several members.
  bool Set(std::vector<RECORD::DomainUser>& users, std::vector<RECORD::DomainUser>& conflicts);

  // Takes users out of a domain: roles, aliases, and what names them in the alias table, the BCC
  // rules and the disclaimers. Groups of the domain that hold them record them as removed, so that
  // no group brings them back. Aliases that become free are no longer flagged at others.
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& uids);

  // The users that the entries name, (kind, short name), kind "user" or else a group that stands
  // for its members, sorted by name, each once, with the alias they would get. Collisions with
  // stored users and with earlier ones of the list are flagged. Nothing is written.
  bool PreviewDomainUsers(const int& domain_idx,
                          std::vector<std::pair<std::string, std::string>> entries,
                          std::vector<RECORD::DomainUser>& preview);

  // Sets the flags of the domains' aliases anew: of equal aliases one stays clean. The smallest
  // role gets it ("domain_admin" first), among equal roles whoever has it unflagged now, then the
  // first one listed. Running it again changes nothing; users whose flags stay are not written.
  bool UpdateDuplicateAlias(const std::vector<int>& domain_idxs);
  bool UpdateAllDuplicateAlias();
  // The same with an image of the model as it is: only users whose flags may change are read.
  bool UpdateAllDuplicateAlias(const DB::INTERNAL::ModelImage& image);

  // Gives every user who has aliases in a domain and neither a role nor a group there the role
  // "normal", marked auto-added.
  bool CreateUsersRolesForNonGroupUsers();
  // Takes the same users out of the domain instead. A domain that fails does not keep the others
  // from being done.
  bool RemoveUsersWithoutRole();

 private:
  bool _CreateImp(const int& domain_idx, const std::vector<RECORD::User>& users,
                  const bool& is_auto_added);
  bool _PreviewDomainUsersFromUserShortNames(const int& domain_idx,
                                             const std::vector<std::string>& user_short_names,
                                             std::vector<RECORD::DomainUser>& preview);
  bool _CheckAndSetDomainUsersDuplicated(std::vector<RECORD::DomainUser>& users);
  // The stored users (aliases) of the domains; none for an empty list.
  bool _GetCompareDBDomainUsers(const std::vector<int>& domain_idxs,
                                std::vector<RECORD::DomainUser>& users);
  bool _GetCompareDBDomainUsersAliases(const std::vector<int>& domain_idxs,
                                       std::vector<RECORD::DomainUserAlias>& aliases);
  bool _DeleteRemovedRecords(const std::vector<RECORD::DomainUserAlias>& aliases);
  bool _WriteRoles(const std::vector<RECORD::DomainUser>& users);
  bool _RecordRemovalFromGroups(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool _DeleteRows(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool _DeleteRelatedSettings(const int& domain_idx, const std::vector<unsigned int>& uids);
  bool _DeleteAliasRelatedSettings(const int& domain_idx, const std::list<std::string>& names);
  bool _DeleteBCCRelatedSettings(const int& domain_idx, const std::list<std::string>& names);
  bool _DeleteDiscalmerRelatedSettings(const int& domain_idx,
                                       const std::vector<unsigned int>& uids);

  DB::DomainUser store_;
};

}  // namespace MDOMAIN::CONTROL

#endif  // LIB_DOMAIN_CONTROL_DOMAIN_USER_H
