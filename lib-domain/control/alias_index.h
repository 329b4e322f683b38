// The collision rules: aliases and account names of a domain, found by their folded text.
//
// Every rule takes time linear in the number of aliases, also when everybody has the same alias (a
// pattern without placeholders). The rules for a batch compare its users with each other as well:
// without that, all of them would be stored as the only owner of one alias.
#ifndef LIB_DOMAIN_CONTROL_ALIAS_INDEX_H
#define LIB_DOMAIN_CONTROL_ALIAS_INDEX_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "lib-domain/control/entry_names.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "platform/include/hash_index.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// Who holds which alias in which domain; letter case (ASCII) does not matter.
class AliasIndex {
 public:
  // Who held an alias before it was added: nobody, the same user alone, somebody else.
  enum class Before { kFree, kOwn, kOthers };

  void Reserve(size_t aliases);
  Before Add(int domain_idx, unsigned int uid, const std::string& alias);
  void Add(const std::vector<RECORD::DomainUserAlias>& aliases);
  void Add(const std::vector<RECORD::DomainUser>& users);

  bool IsHeld(int domain_idx, const std::string& alias) const;
  bool IsHeldBy(int domain_idx, unsigned int uid, const std::string& alias) const;
  bool IsHeldByOther(int domain_idx, unsigned int uid, const std::string& alias) const;

 private:
  // Tells whether somebody else has the alias without a list of all its holders, which could be as
  // long as the domain.
  struct Held {
    size_t begin;  // in the texts
    uint32_t length;
    int domain_idx;
    unsigned int first_uid;
    bool are_several;
  };

  auto _Is(int domain_idx, std::string_view alias) const;
  const Held* _Find(int domain_idx, const std::string& alias) const;

  std::vector<Held> held_;
  std::string texts_;                // of all of them, one after the other
  korvmailserver::HashIndex index_;  // of those held, by domain and folded text
  // The users who came after the first: number of what is held, and uid.
  std::set<std::pair<uint32_t, unsigned int>> later_;
};

// Which users of a domain have which short account name; letter case (ASCII) does not matter.
class AccountNameIndex {
 public:
  explicit AccountNameIndex(const std::vector<RECORD::DomainUser>& users);

  // Appends the full names of the domain's users whose short account name equals `alias`, in the
  // order in which they were given, without the user `skipped_uid` if one is named.
  void AppendNames(int domain_idx, const std::string& alias,
                   std::optional<unsigned int> skipped_uid, std::vector<std::string>& names) const;

 private:
  struct Account {
    unsigned int uid;
    std::string user_name;
  };
  std::unordered_map<std::string, std::vector<Account>> accounts_;
};

// The domains of the records, ascending, each once.
std::vector<int> DomainsOf(const std::vector<RECORD::DomainUser>& users);
std::vector<int> DomainsOf(const std::vector<RECORD::DomainUserAlias>& aliases);

// The aliases of all users, user by user.
std::vector<RECORD::DomainUserAlias> AliasesOf(const std::vector<RECORD::DomainUser>& users);

// Removes aliases that repeat the one before them of the same user in the same domain. The others
// keep their order.
void EraseRepeatsOfEachUser(std::vector<RECORD::DomainUserAlias>& aliases);

// Flags the candidate when `existing` holds its alias. True when its own user holds it. A flag is
// never cleared.
bool FlagCandidate(const AliasIndex& existing, RECORD::DomainUserAlias& candidate);

// Removes the candidates whose own user holds the alias already, and flags those that others hold.
void DropOwnAndFlagOthers(const AliasIndex& existing,
                          std::vector<RECORD::DomainUserAlias>& candidates);

// The same for a batch: a candidate that equals an earlier one is flagged, too.
void CheckAndFlagCandidates(const AliasIndex& existing,
                            std::vector<RECORD::DomainUserAlias>& candidates);

// Flags the target's aliases that `others` holds, with `skip_same_uid` those that somebody else
// holds. True when there are any. Flags that were set before stay and do not count.
bool FlagPairs(const AliasIndex& others, bool skip_same_uid, RECORD::DomainUser& target);

// The same for a user of a batch: compares with the users of `batch`, too, and adds the target to
// them. The user's own aliases never count.
bool CheckAndFlagPairs(const AliasIndex& others, AliasIndex& batch, RECORD::DomainUser& target);

// Replaces the target's conflicting account names: for each of its aliases, the full names of the
// users whose short account name it equals. True when there are any.
bool SetConflictingNames(const AccountNameIndex& others, bool skip_same_uid,
                         RECORD::DomainUser& target);

// Sets the flags of all aliases of the given users anew: of equal aliases in a domain one is clean.
// The smallest role gets it ("domain_admin" before "normal", which users without a role count as);
// among users of that role whoever has it clean now; among those the smallest uid. The result tells
// of each user, in order, whether a flag changed.
//
// The listing shows flagged aliases first. If its order decided, every pass would hand the address
// to the other user and the next one would hand it back; so whoever has it keeps it.
// A name of an entry of the alias table is clean for nobody.
std::vector<bool> RecomputeFlags(std::vector<RECORD::DomainUser>& users,
                                 const EntryNames& entries = {});

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_ALIAS_INDEX_H
