// Addresses of domains that no single user has: who gets their mail follows from roles, groups and
// entries of the alias table, and what was last made from that is kept beside the log of changed
// addresses.
//
// Over the process-wide handler. True on success; a failure is false and one error line.
#ifndef LIB_DOMAIN_DB_SPECIAL_ADDRESS_H
#define LIB_DOMAIN_DB_SPECIAL_ADDRESS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace MDOMAIN::DB::INTERNAL {

// The addresses that get the mail, joined by ", "; and whether a user who has the address as an
// alias comes first.
struct Receivers {
  std::string addresses;
  bool gives_way = false;

  bool operator==(const Receivers& other) const {
    return addresses == other.addresses && gives_way == other.gives_way;
  }
  bool operator!=(const Receivers& other) const { return !(*this == other); }
};
// By domain and local part without letter case.
using SpecialAddresses = std::map<std::pair<int, std::string>, Receivers>;

// The names of all who are administrators of domains, by their own role or that of a group.
bool ListAdministrators(std::map<int, std::vector<std::string>>& names_by_domain);
// The names of the mirrored members of a group, ASCII case of its name ignored where none has it
// exactly; none of an unknown one.
bool ListMembersOfGroup(const std::string& group_name, std::vector<std::string>& names);
// The mirrored account of that name, ASCII case ignored where none has it exactly; else empty.
bool FindAccount(const std::string& text, std::string& name);

// What was kept; the log of changes must be (StartChangeLog).
bool ListKeptAddresses(SpecialAddresses& kept);
bool KeepAddresses(const SpecialAddresses& addresses);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_SPECIAL_ADDRESS_H
