// Users of a domain by what is asked of them besides a text: each list is read once, by the indexes
// of this library where the connection has them, and cut with the list of all users in memory.
#ifndef LIB_DOMAIN_DB_USER_CHOICE_H
#define LIB_DOMAIN_DB_USER_CHOICE_H

#include <optional>
#include <string>
#include <vector>

#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/record/domain_user.h"

namespace MDOMAIN::DB::INTERNAL {

using Uids = std::vector<unsigned int>;  // ascending, each once

// Who has a flagged alias, and who has a role of the account's own. False with a log line.
bool ListFlaggedUsers(int domain_idx, Uids& uids);
bool ListUsersWithOwnRole(int domain_idx, Uids& uids);

struct UserChoice {
  std::vector<Uids> among;  // in each of them
  std::vector<Uids> not_in;
};

// What a list by a filter for one domain is of.
struct ListOrder {
  int domain_idx;
  std::string text;    // that the name or an alias holds, ASCII case ignored
  std::string column;  // "user_name", "account_alias" or "role"
  bool is_descending;
};

// Adds everybody with aliases and a role in the domain, by uid, with the account name and the
// aliases; role and flags are not read. False with a log line.
bool ListWithAliases(int domain_idx, std::vector<RECORD::DomainUser>& users);

// Adds these users of the domain, in this order, as AddDomainUser of look_up.h does one of them;
// nobody for a uid without aliases there. False with a log line.
bool AddDomainUsers(int domain_idx, const std::vector<unsigned int>& uids,
                    std::vector<RECORD::DomainUser>& users);

// The uids of those who are chosen and have a role, in the order of the column; users with a
// flagged alias may stand before all others. False with a log line.
bool ListChosen(const ListOrder& order, const UserChoice& choice, std::vector<unsigned int>& uids);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_USER_CHOICE_H
