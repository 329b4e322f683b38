// Few users in a company of any size: what decides about them is looked up by the indexes of this
// library, where other operations read a whole domain or the whole mirror.
//
// Where the connection has no such indexes, or too much is asked for, everything is read as it is
// elsewhere: what is found is the same.
#ifndef LIB_DOMAIN_DB_LOOK_UP_H
#define LIB_DOMAIN_DB_LOOK_UP_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lib-domain/db/account_db_filter.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "lib-domain/record/group.h"
#include "lib-domain/record/user.h"
#include "platform/include/export.h"

namespace MDOMAIN::DB::INTERNAL {

// Adds, by id, the mirrored users or groups whose full or short account name is one of the names,
// ASCII case ignored, and maybe others. False with a log line when the mirror cannot be read.
MDOMAIN_EXPORT bool ListNamed(const std::vector<std::string>& names,
                              std::vector<RECORD::User>& users);
MDOMAIN_EXPORT bool ListNamed(const std::vector<std::string>& names,
                              std::vector<RECORD::Group>& groups);

// The role of a group in each domain that it is in. False with a log line when they cannot be read.
bool ListRolesOfGroup(unsigned int gid, std::map<int, std::string>& role_by_domain);

// The number of mirrored users or groups that the filter lets through, whatever its page. False
// with a log line when the mirror cannot be read.
bool CountMirrored(UserDBFilter filter, int& count);
bool CountMirrored(GroupDBFilter filter, int& count);

// The user of the domain as API::DomainUser::ListWithExtraInfo gives it, added to `users`; nobody
// for somebody without a role there. False with a log line when the database cannot be read.
MDOMAIN_EXPORT bool AddDomainUser(int domain_idx, unsigned int uid,
                                  std::vector<RECORD::DomainUser>& users);

// Whether the connection has the indexes. Without them what follows reads much for each answer.
MDOMAIN_EXPORT bool CanLookUp();
// The first alias of any domain that is `from` or stands behind it, in the order of its bytes with
// small ASCII letters for big ones. Empty when there is none. False with a log line when it cannot
// be read.
MDOMAIN_EXPORT bool GetNextAlias(const std::string& from, std::string& alias);
// Adds whoever has one of the aliases in the domain, ASCII case ignored, as
// DomainUser::ListHolders does.
MDOMAIN_EXPORT bool ListHoldersOf(int domain_idx, const std::vector<std::string>& aliases,
                                  std::vector<RECORD::DomainUser>& users);

// The account that owns an alias of the domain, ASCII case ignored: of those who have it and a role
// there the only one, or the only one for whom it is not flagged. kTold without an owner when there
// is nobody. kUnclear when the order of all users decides, or a look-up could miss a holder.
// kFailed with a log line. For a connection with the indexes.
enum class FoundOwner { kTold, kUnclear, kFailed };
FoundOwner FindOwner(int domain_idx, const std::string& alias, std::optional<std::string>& owner);
// Whether every alias is a text. An index does not find others by the text that stands for them.
bool AreAliasesTexts(bool& are_texts);

// Adds the aliases of the domain that are not of printing ASCII alone.
bool ListNonAsciiAliases(int domain_idx, std::vector<std::string>& aliases);
// What asks once for all domains. False, with nothing logged and nothing added, when the connection
// has no such index or the database cannot be read: asking for each domain tells why.
//
// The aliases of a user, by domain in stored order, as DomainUser::GetUserAliases gives them for
// each.
using AliasesByDomain = std::map<int, std::vector<std::string>>;
bool FindAliases(const std::string& user_name, AliasesByDomain& aliases);
// The addresses of a user at the domains' own names, the primary domain first, the others by index.
bool FindAddresses(unsigned int uid, std::vector<std::string>& addresses);
bool FindAddresses(const std::string& user_name, std::vector<std::string>& addresses);
// Adds, as (domain, uid), whoever has a flagged alias or one that stands twice in its domain, ASCII
// case ignored. Reads all aliases.
bool ListSharers(std::vector<std::pair<int, unsigned int>>& users);
// Adds the aliases of these users in the domain.
bool ListAliases(int domain_idx, const std::vector<unsigned int>& uids,
                 std::vector<std::string>& aliases);

// Adds the roles of these users, in all domains, that were given when the account was added
// automatically and that a group gives as well, as (domain, uid).
bool ListRolesGivenByGroups(const std::vector<unsigned int>& uids,
                            std::vector<std::pair<int, unsigned int>>& roles);

// Adds the domains out of which the user was taken by name, each once.
MDOMAIN_EXPORT bool ListTakenOutOf(unsigned int uid, std::vector<int>& domain_idxs);

// Gathers users of domains. Each step is false with a log line when it cannot be read.
class HolderSearch {
 public:
  // All steps are about these domains.
  explicit HolderSearch(const std::vector<int>& domain_idxs);

  bool AddUsers(const std::vector<std::pair<int, unsigned int>>& users);
  // Whoever has one of the aliases in its domain, ASCII case ignored; whose they are said to be
  // does not matter.
  bool AddHolders(const std::vector<RECORD::DomainUserAlias>& aliases);
  // Whoever has one of the aliases for a short account name.
  bool AddNamed(const std::vector<RECORD::DomainUserAlias>& aliases);
  // Whoever has a flagged alias.
  bool AddFlagged();
  // Whoever has an alias of somebody gathered so far, and so on.
  bool AddConnected();

  // Adds those who were gathered, or everybody of the domains, as DomainUser::ListHolders does and
  // in its order.
  bool List(std::vector<RECORD::DomainUser>& users);

 private:
  using Users = std::set<std::pair<int, unsigned int>>;

  bool _AddHolders(int domain_idx, const std::vector<std::string>& aliases);
  bool _GatherFromAll(int domain_idx, const std::vector<std::string>& aliases);
  void _Gather(int domain_idx, unsigned int uid);
  bool _TakesAll(size_t asked);
  bool _IsTooMuch(size_t look_ups) const;

  std::vector<int> domain_idxs_;
  bool takes_all_;
  size_t asked_ = 0;
  Users users_;
  Users unconnected_;  // those whose aliases were not looked at
  std::unordered_set<std::string> known_aliases_;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_LOOK_UP_H
