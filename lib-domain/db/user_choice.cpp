#include "lib-domain/db/user_choice.h"

#include <algorithm>
#include <iterator>
#include <tuple>

#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_user.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

constexpr const char* kSelectFlagged =
    "SELECT DISTINCT uid FROM domain_user_alias_table WHERE domain_idx = %d AND is_duplicated > 0 "
    "ORDER BY uid";
constexpr const char* kSelectWithOwnRole =
    "SELECT DISTINCT uid FROM domain_user_role_table WHERE domain_idx = %d ORDER BY uid";
// So many are read with all that is known of them sooner than everybody is put in order.
constexpr size_t kFew = 2000;

bool Append(const char* statement, int domain_idx, Uids& uids) {
  DomainDBHandler* const handler = DomainDBHandler::GetDomainDBHandler();
  const Database db(handler, handler != nullptr ? 0 : -1);
  return db.Append<Columns<Uid>>(Sql(statement, domain_idx), uids);
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

}  // namespace

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
  if (!DomainUser().GetDistinctUIDs(filter, all)) {
    return false;
  }
  std::copy_if(all.begin(), all.end(), std::back_inserter(uids),
               [&choice](unsigned int uid) { return IsChosen(choice, uid); });
  return true;
}

}  // namespace MDOMAIN::DB::INTERNAL
