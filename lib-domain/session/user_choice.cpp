#include "lib-domain/session/user_choice.h"

#include <algorithm>
#include <chrono>
#include <tuple>
#include <utility>

#include "lib-domain/api/domain_group.h"
#include "lib-domain/control/pattern_trial.h"
#include "lib-domain/db/change_counter.h"
#include "lib-domain/db/group.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/db/user_choice.h"

namespace mdomain::session {

namespace {

using MDOMAIN::DB::INTERNAL::Uids;

constexpr const char* kUsers = "the users of the domain could not be read";

void RequireRead(bool is_read) {
  if (!is_read) {
    Fail(kUsers);
  }
}

// Who drifted, from one page to the next: everybody's attributes were asked for to know it. A
// change of the model ends it, and half a minute does, as attributes change elsewhere.
struct Drift {
  std::string file;
  int counter = 0;
  int domain = 0;
  std::string pattern;
  std::chrono::steady_clock::time_point until;
  Uids uids;
};

// Within a turn.
const Uids& DriftingUsers(const Known& domain) {
  static auto& kept = *new Drift();
  const std::string pattern = PatternOf(domain);
  std::string file;
  int counter = 0;
  RequireRead(MDOMAIN::UTILS::GetUserGroupDomainConfigPath(file) &&
              MDOMAIN::DB::GetChangeCounter(counter));
  const auto now = std::chrono::steady_clock::now();
  if (std::tie(kept.file, kept.counter, kept.domain, kept.pattern) !=
          std::tie(file, counter, domain.idx, pattern) ||
      now >= kept.until) {
    Uids uids;
    if (!MDOMAIN::CONTROL::INTERNAL::ListDrifting(domain.idx, pattern, uids)) {
      Fail("the aliases for domain " + domain.Title() + " could not be made");
    }
    kept = {file, counter, domain.idx, pattern, now + std::chrono::seconds(30), std::move(uids)};
  }
  return kept.uids;
}

Uids MembersOf(const Known& domain, std::uint32_t gid) {
  RequireGroups(domain, {gid});
  Uids uids;
  RequireRead(MDOMAIN::DB::Group().ListGroupToUsers(gid, uids));
  std::sort(uids.begin(), uids.end());
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  return uids;
}

}  // namespace

void RequireGroups(const Known& domain, const std::vector<std::uint32_t>& gids) {
  std::vector<unsigned int> known;
  if (!MDOMAIN::API::DomainGroup().List(domain.idx, known)) {
    Fail("the groups of the domain could not be read");
  }
  for (const std::uint32_t gid : gids) {
    if (std::find(known.begin(), known.end(), gid) == known.end()) {
      Refuse(Reason::kNotFound,
             "no group of domain " + domain.Title() + " has the gid " + std::to_string(gid));
    }
  }
}

bool IsChoosing(const UserQuery& query) {
  return query.collides || query.drifts || query.has_own_role || query.gid;
}

std::vector<std::uint32_t> ChosenUsers(const Known& domain, const UserQuery& query,
                                       const char* column) {
  MDOMAIN::DB::INTERNAL::UserChoice choice;
  if (query.collides) {
    choice.among.emplace_back();
    RequireRead(MDOMAIN::DB::INTERNAL::ListFlaggedUsers(domain.idx, choice.among.back()));
  }
  if (query.gid) {
    choice.among.push_back(MembersOf(domain, *query.gid));
  }
  if (query.has_own_role) {
    auto& lists = *query.has_own_role ? choice.among : choice.not_in;
    lists.emplace_back();
    RequireRead(MDOMAIN::DB::INTERNAL::ListUsersWithOwnRole(domain.idx, lists.back()));
  }
  if (query.drifts) {
    choice.among.push_back(DriftingUsers(domain));
  }
  std::vector<std::uint32_t> uids;
  RequireRead(MDOMAIN::DB::INTERNAL::ListChosen(
      {domain.idx, query.text, column, query.is_descending}, choice, uids));
  return uids;
}

}  // namespace mdomain::session
