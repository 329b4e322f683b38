// The store of a domain's users: direct roles, aliases, removal records, effective roles.
//
// Operations return true on success. A failure is false and one error line that says what failed,
// after a line with SQLite's reason (of a write a warning, of a read an error too); out arguments
// may then be partly filled. Writes are one transaction each: all or nothing. Texts end at their
// first zero byte; one that makes a statement longer than 999,999 bytes fails the operation.
//
// The effective role of users is their own one, else the smallest role ("domain_admin" before
// "normal") of the groups from which they were not taken out, else none. Reading it goes through
// domain_user_view, which works out the roles of all domains each time: its cost grows with the
// whole mirror, so read many users at once, not one after the other.
#ifndef LIB_DOMAIN_DB_DOMAIN_USER_H
#define LIB_DOMAIN_DB_DOMAIN_USER_H

#include <functional>
#include <list>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/db/handler.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/domain_user_role.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB {

namespace INTERNAL {
class Database;
class Sql;
}  // namespace INTERNAL

class MDOMAIN_EXPORT DomainUser {
 public:
  // Borrows the process-wide handler; without one every operation fails.
  DomainUser();

  // Whether any domain has the alias, ASCII case ignored. False also when the query fails.
  bool IsAliasExist(const std::string& alias);
  // Whether a user of this name (ASCII case ignored) has an alias in the domain, with a role or
  // without. False also when the query fails.
  bool IsExists(const int& domain_idx, const std::string& user_name);
  // The number of matching users with a role, whatever the filter's page.
  bool GetDomainUsersCount(DomainDBFilter& filter, int& count);
  // Appends one page of the matching users with a role, those with a duplicated alias first.
  bool GetDistinctUIDs(DomainDBFilter& filter, std::vector<unsigned int>& uids);
  // Adds one page of the matching users with a role to `users`, each with all aliases in the
  // domain, duplicated ones first. Offset and limit count users. A user of two of the filter's
  // domains is one entry per domain. `with_group_control`: each entry tells, too, whether the user
  // has no own role. A filter without domains fails unless it matches nobody.
  bool ListDomainUsers(DomainDBFilter& filter, std::vector<RECORD::DomainUser>& users,
                       const bool& with_group_control);
  // ListDomainUsers with group control, in the same order, but for a listing of any length: calls
  // `use` for one user after the other, all of one moment, which must not change the database, and
  // keeps little of them. Before a failure some were handed out.
  using UserVisitor = std::function<void(RECORD::DomainUser& user)>;
  bool ForEachDomainUser(DomainDBFilter& filter, const UserVisitor& use);
  // Calls `use` for each account name of users with a role in any domain, in the order of the
  // names' bytes, with what ListDomainUsers gives of them for all domains, in the same order. All
  // is of one moment, little of it is kept. Before a failure some were handed out.
  using NameVisitor =
      std::function<void(const std::string& user_name, std::vector<RECORD::DomainUser>& users)>;
  bool ForEachName(const NameVisitor& use);
  // Appends all users of the domain that have a role: uids, records, account names; the records as
  // ListDomainUsers gives them without group control.
  bool List(const int& domain_idx, std::vector<unsigned int>& uids);
  bool List(const int& domain_idx, std::vector<RECORD::DomainUser>& users);
  bool List(const int& domain_idx, std::list<std::string>& user_names);
  // The uids of those of `among` who have a role in the domain, in no order; others with a
  // role may be there, too.
  bool List(const int& domain_idx, const std::vector<unsigned int>& among,
            std::vector<unsigned int>& uids);
  // The uids of several domains with one read: the view works out the roles of all domains each
  // time. Domains without users are not in the map.
  bool List(const std::vector<int>& domain_idxs,
            std::map<int, std::unordered_set<unsigned int>>& uids_by_domain);
  // Appends the aliases of all users with a role in the domains, user by user.
  bool ListDomainUsersAliases(const std::vector<int>& domain_idxs,
                              std::vector<RECORD::DomainUserAlias>& aliases);
  // Calls `use` for each alias of the domains, by domain, uid and stored order, until it answers
  // false; it must not change the database. Before a failure some were handed out.
  enum class AliasFlag { kPlain, kFlagged, kOther, kNoRole };  // 0; 1; another; has no role there
  using AliasVisitor = std::function<bool(int domain_idx, std::string&& user_name,
                                          std::string&& alias, AliasFlag flag)>;
  bool ForEachAlias(const std::vector<int>& domain_idxs, const AliasVisitor& use);
  // Adds everybody who has an alias in the domains, those without a role (the empty text) included,
  // as ListDomainUsers gives them without group control. No domain: fails.
  bool ListHolders(const std::vector<int>& domain_idxs, std::vector<RECORD::DomainUser>& users);
  // The same of these users alone, of whom one statement can name some ten thousand; none: of all.
  bool ListHolders(const std::vector<int>& domain_idxs, const std::vector<unsigned int>& uids,
                   std::vector<RECORD::DomainUser>& users);
  // Adds what the users have in all domains, in the same form, by uid and domain.
  bool ListDomainsOfUsers(const std::vector<unsigned int>& uids,
                          std::vector<RECORD::DomainUser>& users);
  // Appends the rows of an alias in the domain, ASCII case ignored.
  // `alias` goes into the statement as it is: callers double its apostrophes.
  bool GetAliasUsers(const int& domain_idx, const std::string& alias,
                     std::vector<RECORD::DomainUserAlias>& aliases);
  // Appends the aliases of one user in a domain in stored order, by uid or by account name, with a
  // role or without; none for an unknown user. Where nobody has exactly that name ASCII case is
  // ignored: names that differ in case alone are two accounts.
  bool GetUserAliases(const int& domain_idx, const unsigned int& uid,
                      std::vector<std::string>& aliases);
  bool GetUserAliases(const int& domain_idx, const std::string& user_name,
                      std::vector<std::string>& aliases);
  // The aliases that are not flagged duplicated of every user of a domain, in stored order, with
  // one read, by account name as stored. A user who has none but flagged ones is there without any.
  // `aliases_by_user` is replaced on success and untouched on failure.
  bool GetAllUserAliases(
      const int& domain_idx,
      std::unordered_map<std::string, std::vector<std::string>>& aliases_by_user);
  // Appends the own roles, of all domains, that were given when the account was added
  // automatically.
  bool GetAutoAddedUsersRoles(std::vector<RECORD::DomainUserRole>& roles);
  // Appends the groups by which the user has a role in the domain; none for a user with an own
  // role.
  bool FindBeingEffectedGroups(const int& domain_idx, const unsigned int& uid,
                               std::vector<unsigned int>& gids);
  // FindBeingEffectedGroups for many users with one read; users without any are not in the map.
  bool FindBeingEffectedGroups(const int& domain_idx, const std::vector<unsigned int>& uids,
                               std::map<unsigned int, std::vector<unsigned int>>& gids_by_uid);
  // Per domain the users who have aliases there but no role. A user with several aliases stands
  // several times.
  bool GetUsersWithoutRole(std::map<int, std::vector<unsigned int>>& uids_by_domain);
  // Appends the aliases that are flagged duplicated in the domain, one of several that differ only
  // in case.
  bool ListDuplicatedEmail(const int& domain_idx, std::vector<std::string>& emails);
  // Adds the users that were taken out of a group in this domain.
  bool GetAllRemovedUIDs(const int& domain_idx, std::unordered_set<unsigned int>& uids);

  // Gives each user an own role in the domain, in place of one that is there. Domain and user must
  // exist. Invalid records are left out silently, here and in CreateUsersAliases.
  bool SetUsersRoles(const std::vector<RECORD::DomainUserRole>& roles);
  bool CreateUsersRoles(const std::vector<RECORD::DomainUserRole>& roles);
  // Takes own roles away, by (domain, uid) or for many users of a domain; none there is no failure.
  bool DeleteUsersRoles(const std::vector<std::pair<int, unsigned int>>& pairs);
  bool DeleteUsersRoles(const int& domain_idx, const std::vector<unsigned int>& uids);
  // Adds alias rows; domain and user must exist. An alias that is there already is added again, for
  // the same user or for another.
  bool CreateUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases);
  // Replaces all aliases in the domain of every user that has a valid record here by those records.
  // Each invalid record is logged and left out; a user with invalid ones only keeps what was there.
  bool SetUsersAliases(const std::vector<RECORD::DomainUserAlias>& aliases);
  // Deletes all aliases of these users in the domain; none there is no failure.
  bool DeleteUsersAliases(const int& domain_idx, const std::vector<unsigned int>& uids);
  // Records (domain, gid, uid): the group no longer gives this member a role in the domain. All
  // three must exist; one that is recorded already is no failure.
  bool RemoveUsersFromDomainGroups(
      const std::vector<std::tuple<int, unsigned int, unsigned int>>& removals);
  // Forgets that these users were taken out of groups of the domain.
  bool DeleteRemovedRecord(const int& domain_idx, const std::vector<unsigned int>& uids);

 private:
  bool _AppendAliasRows(const INTERNAL::Sql& sql, std::vector<RECORD::DomainUser>& alias_rows);
  bool _AppendNamed(const std::vector<unsigned int>& uids, std::vector<RECORD::DomainUser>& users);
  bool _AppendUsers(DomainDBFilter& filter, const std::vector<unsigned int>& uids,
                    bool with_group_control, std::vector<RECORD::DomainUser>& users);
  DomainDBFilter _WholeOf(const DomainDBFilter& filter) const;
  bool _ReadUIDs(DomainDBFilter& own, std::vector<unsigned int>& uids);
  // False with `are_plain` false, with nothing logged or added, where one of the numbers is no uid:
  // a list fails only where such a one stands on the page that was asked for.
  bool _ReadPlainUIDs(DomainDBFilter& whole, std::vector<unsigned int>& uids, bool& are_plain);
  bool _WalkUIDs(const DomainDBFilter& filter, std::vector<unsigned int>& uids, bool& are_plain);
  bool _MayGatherRoles(int domain_idx);
  bool _ForEachAliasOfView(const std::vector<int>& domain_idxs, const AliasVisitor& use);
  bool _CutByText(const DomainDBFilter& filter, const char* texts, std::vector<unsigned int>& uids);
  bool _CutByRole(const DomainDBFilter& filter, std::vector<unsigned int>& uids);
  bool _CutWhole(const DomainDBFilter& filter, std::vector<unsigned int>& uids);
  bool _OrderByFlags(int domain_idx, std::vector<unsigned int>& uids);
  bool _CheckUnderControl(std::vector<RECORD::DomainUser>& users);

  INTERNAL::Database _DomainDb() const;

  DomainDBHandler* handler_;
  int status_;  // 0, or -1 without a handler
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_USER_H
