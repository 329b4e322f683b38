// The collision rules for many users at once: aliases and account names found by their folded text.
//
// Each function names the rule of alias_conflict.h whose outcome it gives, in time linear in the
// number of aliases, also when everybody has the same alias (a pattern without placeholders).
// Beyond the rules it compares the users of one batch with each other, who would otherwise all be
// stored as the alias's only owner.
#ifndef LIB_DOMAIN_CONTROL_ALIAS_INDEX_H
#define LIB_DOMAIN_CONTROL_ALIAS_INDEX_H

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"

namespace MDOMAIN::CONTROL::INTERNAL {

// Who holds which alias in which domain; letter case (ASCII) does not matter.
class AliasIndex {
 public:
  void Add(int domain_idx, unsigned int uid, const std::string& alias);
  void Add(const std::vector<RECORD::DomainUserAlias>& aliases);
  void Add(const std::vector<RECORD::DomainUser>& users);

  bool IsHeld(int domain_idx, const std::string& alias) const;
  bool IsHeldBy(int domain_idx, unsigned int uid, const std::string& alias) const;
  bool IsHeldByOther(int domain_idx, unsigned int uid, const std::string& alias) const;

 private:
  // Enough to tell whether somebody else has it, without a list that could be as long as the
  // domain.
  struct Holders {
    unsigned int first_uid;
    bool are_several;
  };
  std::unordered_map<std::string, Holders> holders_;
  std::unordered_set<std::string> owned_;
};

// Whose short account name is a text, in which domain.
class AccountNameIndex {
 public:
  explicit AccountNameIndex(const std::vector<RECORD::DomainUser>& users);

  // Appends the full names of the users of the domain, but for `uid`, whose short account name
  // equals `alias`, in the order in which they were given.
  void AppendNames(int domain_idx, unsigned int uid, const std::string& alias,
                   std::vector<std::string>& names) const;

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

// _CheckAndEraseDupAlias on each user's own run of aliases in a domain; what is left keeps its
// order.
void EraseRepeatsOfEachUser(std::vector<RECORD::DomainUserAlias>& aliases);

// _CheckAndSetDomainUsersAliasesDuplicated; besides, a candidate that an earlier one equals is
// flagged.
void CheckAndFlagCandidates(const AliasIndex& existing,
                            std::vector<RECORD::DomainUserAlias>& candidates);

// _CheckAndSetAliasDuplicatedPairs without the same uid; besides, the target's aliases are compared
// with, and added to, `batch`. True when any is held by another user.
bool CheckAndFlagPairs(const AliasIndex& others, AliasIndex& batch, RECORD::DomainUser& target);

// _CheckAndSetConflictingAccountNames without the same uid.
bool CheckAndSetConflictingNames(const AccountNameIndex& others, RECORD::DomainUser& target);

// Sets the flags of all aliases of the given domain users anew: of equal aliases in a domain one is
// clean. It is that of the smallest role ("domain_admin" before "normal", users without a role
// last); among those one that is clean now; among those the first one listed. True for every user,
// in order, any of whose flags changed.
//
// The plain listing shows flagged aliases first. Taken as it is, it would hand an address to the
// other person at every pass, and back at the next; so whoever has it keeps it.
std::vector<bool> RecomputeFlags(std::vector<RECORD::DomainUser>& users);

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_ALIAS_INDEX_H
