#include "lib-domain/db/user_choice.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_group.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/role_holders.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

constexpr const char* kSelectFlagged =
    "SELECT DISTINCT uid FROM domain_user_alias_table WHERE domain_idx = %d AND is_duplicated > 0 "
    "ORDER BY uid";
constexpr const char* kSelectNamesAndAliases =
    "SELECT alias.uid, user_name, account_alias FROM domain_user_alias_table AS alias CROSS JOIN "
    "user_table ON user_table.uid = alias.uid WHERE alias.domain_idx = %d ORDER BY alias.uid, "
    "alias.rowid";
constexpr const char* kSelectOwnRolesAmong =
    "SELECT uid FROM domain_user_role_table WHERE domain_idx = %d AND uid IN (%s)";
constexpr const char* kSelectWithOwnRole =
    "SELECT DISTINCT uid FROM domain_user_role_table WHERE domain_idx = %d ORDER BY uid";
// So many are read with all that is known of them sooner than everybody is put in order.
constexpr size_t kFew = 5000;
constexpr size_t kUsersOfAPage = 500;  // for more, roles by groups are read for the whole domain

Database DomainDb() {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  return {handler, handler != nullptr ? 0 : -1};
}

bool Append(const char* statement, int domain_idx, Uids& uids) {
  return DomainDb().Append<Columns<Uid>>(Sql(statement, domain_idx), uids);
}

bool IsIn(const Uids& uids, unsigned int uid) {
  return std::binary_search(uids.begin(), uids.end(), uid);
}

bool IsChosen(const UserChoice& choice, unsigned int uid) {
  const auto has = [uid](const Uids& uids) { return IsIn(uids, uid); };
  return std::all_of(choice.among.begin(), choice.among.end(), has) &&
         std::none_of(choice.not_in.begin(), choice.not_in.end(), has);
}

// Where the first matching row of a user stands: flagged ones before all others.
struct Place {
  bool is_flagged = false;
  std::string value;
};

bool IsBefore(const Place& one, const Place& other, bool is_descending) {
  if (one.is_flagged != other.is_flagged) {
    return one.is_flagged;
  }
  return is_descending ? one.value > other.value : one.value < other.value;
}

bool FindPlace(const RECORD::DomainUser& user, const ListOrder& order, Place& place) {
  const std::string text = BASE::ToLowerAscii(order.text);
  const auto holds = [&text](const std::string& value) {
    return BASE::ToLowerAscii(value).find(text) != std::string::npos;
  };
  bool is_found = false;
  for (const auto& [alias, is_flagged] : user.GetAliasDuplicatedPairs()) {
    if (!holds(user.GetUserName()) && !holds(alias)) {
      continue;
    }
    const Place here{is_flagged, order.column == "user_name" ? user.GetUserName()
                                 : order.column == "role"    ? user.GetRole()
                                                             : alias};
    if (!is_found || IsBefore(here, place, order.is_descending)) {
      place = here;
    }
    is_found = true;
  }
  return is_found && !user.GetRole().empty();
}

bool ListFew(const ListOrder& order, const Uids& few, std::vector<unsigned int>& uids) {
  std::vector<RECORD::DomainUser> users;
  if (few.empty()) {
    return true;
  }
  if (!DomainUser().ListHolders({order.domain_idx}, few, users)) {
    return false;
  }
  std::vector<std::pair<Place, unsigned int>> places;
  for (const RECORD::DomainUser& user : users) {
    Place place;
    if (FindPlace(user, order, place)) {
      places.emplace_back(std::move(place), user.GetUID());
    }
  }
  std::sort(places.begin(), places.end(), [&order](const auto& one, const auto& other) {
    return IsBefore(one.first, other.first, order.is_descending) ||
           (!IsBefore(other.first, one.first, order.is_descending) && one.second < other.second);
  });
  std::transform(places.begin(), places.end(), std::back_inserter(uids),
                 [](const auto& place) { return place.second; });
  return true;
}

// Kept from the first time on: all of it is needed for one page, and the next one comes.
bool ListInOrder(DomainDBFilter& filter, std::vector<unsigned int>& uids) {
  const auto read = [&filter](std::vector<unsigned int>& listed) {
    return DomainUser().GetDistinctUIDs(filter, listed);
  };
  const std::string what = "whole: " + filter.ComposeDistinctUIDQueryCmd();
  bool has_list = true;
  return DomainDb().RememberList(what, read, uids, has_list) && (has_list || read(uids));
}

}  // namespace

bool ListWithAliases(int domain_idx, std::vector<RECORD::DomainUser>& users) {
  const ReadScope of_one_moment;
  RoleHolders holders;
  std::unordered_set<unsigned int> with_role;
  const bool is_gathered = holders.Read(DomainDb(), domain_idx);
  if (!is_gathered) {
    std::vector<unsigned int> uids;
    if (!DomainUser().List(domain_idx, uids)) {
      return false;
    }
    with_role.insert(uids.begin(), uids.end());
  }
  using Aliases = std::vector<std::pair<std::string, bool>>;
  std::optional<RECORD::DomainUser> last;
  Aliases aliases;
  const auto take_last = [&] {
    if (last) {
      last->SetAliasDuplicatedPairs(aliases);
      users.push_back(std::move(*last));
      last.reset();
    }
    aliases.clear();
  };
  const auto keep = [&](unsigned int uid, std::string&& name, std::string&& alias) {
    if (!last || last->GetUID() != uid) {
      take_last();
      if (!(is_gathered ? holders.Has(uid) : with_role.count(uid) != 0)) {
        return;
      }
      last.emplace(domain_idx, uid, std::move(name), Aliases(), "");
    }
    aliases.emplace_back(std::move(alias), false);
  };
  if (!DomainDb().Query<Columns<Uid, Text, Text>>(Sql(kSelectNamesAndAliases, domain_idx), keep)) {
    return false;
  }
  take_last();
  return true;
}

bool AddDomainUsers(int domain_idx, const std::vector<unsigned int>& uids,
                    std::vector<RECORD::DomainUser>& users) {
  if (uids.empty()) {
    return true;
  }
  const ReadScope of_one_moment;
  std::vector<RECORD::DomainUser> found;
  std::unordered_set<unsigned int> own;
  std::unordered_map<unsigned int, std::string> group_roles;
  if (!DomainUser().ListHolders({domain_idx}, uids, found) ||
      !DomainDb().Query<Columns<Uid>>(
          FormatStatement(kSelectOwnRolesAmong, domain_idx, BASE::Join(uids, ",").c_str()),
          [&own](unsigned int uid) { own.insert(uid); }) ||
      !(uids.size() <= kUsersOfAPage
            ? DomainGroup().GetResultGroupRolesOf(domain_idx, uids, group_roles)
            : DomainGroup().GetResultGroupRoles(domain_idx, group_roles))) {
    return false;
  }
  std::unordered_map<unsigned int, RECORD::DomainUser*> by_uid;
  for (RECORD::DomainUser& user : found) {
    const auto role = group_roles.find(user.GetUID());
    user.SetIsUnderGroupControl(own.count(user.GetUID()) == 0);
    user.SetIsBelongingGroupInDomain(role != group_roles.end());
    user.SetResultGroupRole(role != group_roles.end() ? role->second : "");
    by_uid[user.GetUID()] = &user;
  }
  for (const unsigned int uid : uids) {
    const auto user = by_uid.find(uid);
    if (user != by_uid.end()) {
      users.push_back(std::move(*user->second));
    }
  }
  return true;
}

bool ListFlaggedUsers(int domain_idx, Uids& uids) {
  return Append(kSelectFlagged, domain_idx, uids);
}

bool ListUsersWithOwnRole(int domain_idx, Uids& uids) {
  return Append(kSelectWithOwnRole, domain_idx, uids);
}

bool ListChosen(const ListOrder& order, const UserChoice& choice, std::vector<unsigned int>& uids) {
  const auto smallest = std::min_element(
      choice.among.begin(), choice.among.end(),
      [](const Uids& one, const Uids& other) { return one.size() < other.size(); });
  if (smallest != choice.among.end() && smallest->size() <= kFew) {
    Uids few;
    std::copy_if(smallest->begin(), smallest->end(), std::back_inserter(few),
                 [&choice](unsigned int uid) { return IsChosen(choice, uid); });
    return ListFew(order, few, uids);
  }
  DomainDBFilter filter(kUserView);
  filter.SetDomainIdxs({order.domain_idx});
  filter.SetLiteralQuery(order.text);
  filter.SetSortBy(order.column);
  filter.SetSortDirection(order.is_descending ? "desc" : "asc");
  filter.SetLimit(-1);
  std::vector<unsigned int> all;
  if (!ListInOrder(filter, all)) {
    return false;
  }
  std::copy_if(all.begin(), all.end(), std::back_inserter(uids),
               [&choice](unsigned int uid) { return IsChosen(choice, uid); });
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
