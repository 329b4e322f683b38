// The public interface for the users of domains, their aliases and addresses.
//
// Reading calls that are CONTROL::DomainUser's own: List, GetDomainUsersCount, IsExists,
// IsAliasExist, GetUsersWithoutRole, RemoveUsersWithoutRole, ListDuplicatedEmail. Every changing
// call ends by publishing all domain data and is false when that fails, although the change stays:
// the error number 5635 says so.
// Lists and maps are added to, never cleared; a call that fails may have filled them in part.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_DOMAIN_USER_H
#define LIB_DOMAIN_API_DOMAIN_USER_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/control/domain_user.h"
#include "platform/include/export.h"

namespace MDOMAIN::API {

class MDOMAIN_EXPORT DomainUser : public CONTROL::DomainUser {
 public:
  // The users that the entries name ("user" or "group", short name) with the aliases that the
  // domain's pattern would give them now, collisions flagged. Nothing is written.
  bool Preview(const int& domain_idx, std::vector<std::pair<std::string, std::string>> entries,
               std::vector<RECORD::DomainUser>& preview);

  // The account that owns an alias in the domain. True with `user_name` empty when nobody does;
  // false when the database cannot be read.
  bool GetAliasUser(const int& domain_idx, const std::string& alias, std::string& user_name);

  // List, and for each user whether it is under group control, whether it belongs to a group of the
  // domain, and the role that its groups give there (empty when none does).
  bool ListWithExtraInfo(DB::DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users);

  // Adds users with the role "normal", groups with their members, and the given aliases, then drops
  // roles that a group now gives. Users who are not mirrored are skipped; a group that the account
  // system does not know fails the call, but the users stay added. Aliases that a user has already
  // are dropped from `aliases`, those that collide are flagged in it.
  bool AddMembers(const int& domain_idx, const std::vector<std::string>& user_names,
                  const std::vector<std::string>& group_names,
                  std::vector<RECORD::DomainUserAlias>& aliases);

  // Replaces role ("group" leaves the role to the groups) and aliases of users. Users whose alias
  // collides or is another user's account name are written all the same and copied to `conflicts`.
  // An empty role leaves the stored one. Nothing is changed when a role is none of these nor
  // "domain_admin" nor "normal", or an alias is none: error number 5633.
  bool Set(std::vector<RECORD::DomainUser>& users, std::vector<RECORD::DomainUser>& conflicts);

  // Takes users out of the domain, with aliases, role and mail settings. A group does not bring
  // them back until they are restored or added again.
  bool Delete(const int& domain_idx, const std::vector<unsigned int>& uids);

  // Appends every address of a user, those of the primary domain first. True with nothing appended
  // when the user is unknown; false when the database cannot be read.
  bool GetMailAddresses(const unsigned int& uid, std::vector<std::string>& addresses);
  bool GetMailAddresses(const std::string& user_name, std::vector<std::string>& addresses);
  // The same, each domain followed by its additional names.
  bool GetMailAddrIncludingAdditionalDomain(const std::string& user_name,
                                            std::vector<std::string>& addresses);

  // Account name to aliases, of every user of the domain.
  bool GetUser2AliasesMap(const int& domain_idx,
                          std::map<std::string, std::vector<std::string>>& aliases_by_user);
  // Account name to addresses in all domains, of every user of any domain.
  bool GetAllUser2EmailsMap(const bool& include_additional,
                            std::map<std::string, std::vector<std::string>>& emails_by_user);
  // The same for one name after the other, in the order of their bytes: for a listing of any
  // length. `use` must not change the database. Before a failure some were handed out.
  using EmailVisitor =
      std::function<void(const std::string& user_name, const std::vector<std::string>& emails)>;
  bool ForEachUserEmails(bool include_additional, const EmailVisitor& use);

  // Of the last changing call, of whichever object: 5633 a value of Set that is none, 5635 the
  // change is stored and could not be published; else 0.
  static unsigned int GetErrorCode();

 private:
  using AliasGetter = std::function<bool(int domain_idx, std::vector<std::string>& aliases)>;

  static bool _IsValid(const RECORD::DomainUser& user);
  bool _SetExtraInfo(RECORD::DomainUser& user);
  bool _AddMembersImp(const int& domain_idx, const std::vector<std::string>& user_names,
                      const std::vector<std::string>& group_names,
                      std::vector<RECORD::DomainUserAlias>& aliases);
  bool _GetAddressesByName(const std::string& user_name, bool include_additional,
                           std::vector<std::string>& addresses);
  bool _GetAddresses(const AliasGetter& get_aliases, bool include_additional,
                     std::vector<std::string>& addresses);
};

}  // namespace MDOMAIN::API

#endif  // LIB_DOMAIN_API_DOMAIN_USER_H
