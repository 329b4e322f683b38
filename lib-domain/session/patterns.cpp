// What patterns give: over all users of a domain, page by page.
#include "lib-domain/control/pattern_trial.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/pages.h"

namespace mdomain {

using MDOMAIN::CONTROL::INTERNAL::TriedCounts;
using session::Fail;
using session::Read;
using Tried = MDOMAIN::CONTROL::INTERNAL::TriedAlias;

namespace {

TriedAlias AliasOf(const Tried& tried) {
  TriedAlias alias;
  alias.uid = tried.user.GetUID();
  alias.name = tried.user.GetUserName();
  for (const auto& pair : tried.user.GetAliasDuplicatedPairs()) {
    alias.aliases.push_back(pair.first);
  }
  alias.local_part = tried.alias;
  alias.from = tried.is_from_pattern ? TriedAlias::From::kPattern
               : tried.alias.empty() ? TriedAlias::From::kNothing
                                     : TriedAlias::From::kAccountName;
  alias.why = MDOMAIN::CONTROL::INTERNAL::WhyNotByPattern(tried);
  alias.rivals = tried.rivals;
  alias.rival_names = tried.rival_names;
  alias.is_entry = tried.is_entry;
  return alias;
}

// Of all users, those for whom `is_asked_for` holds.
template <typename Filter>
TriedPattern Try(const session::Known& domain, const std::string& pattern,
                 const PatternQuery& query, const std::string& cursor, const Filter& is_asked_for) {
  const session::PlaceInList place(query.page_size, cursor);
  std::vector<Tried> all;
  if (!MDOMAIN::CONTROL::INTERNAL::TryPattern(domain.idx, pattern, all)) {
    Fail("the aliases for domain " + domain.Title() + " could not be made");
  }
  TriedPattern tried;
  TriedCounts counts;
  std::size_t total = 0;
  const auto begin = static_cast<std::size_t>(place.offset());
  for (const Tried& one : all) {
    if (!is_asked_for(one)) {
      continue;
    }
    counts.Add(one);
    const bool is_problem = one.Collides() || !one.is_from_pattern;
    if ((!query.only_problems || is_problem) && ++total > begin &&
        tried.page.items.size() < static_cast<std::size_t>(place.limit())) {
      tried.page.items.push_back(AliasOf(one));
    }
  }
  place.End(total, tried.page);
  tried.pattern = pattern;
  tried.users = all.size();
  tried.by_pattern = counts.FromPattern();
  tried.by_account_name = counts.from_account;
  tried.without_address = counts.without_address;
  tried.colliding = counts.colliding;
  return tried;
}

}  // namespace

Result<TriedPattern> Session::TryPattern(int domain, const std::string& pattern,
                                         const PatternQuery& query,
                                         const std::string& cursor) const {
  return Read<TriedPattern>(*this, [&] {
    const session::Known known = session::KnownDomain(*this, domain);
    session::Refusals refusals;
    session::RequirePattern(pattern, refusals);
    refusals.End(Reason::kInvalid, "nothing was tried");
    return Try(known, pattern, query, cursor, [](const Tried& /*one*/) { return true; });
  });
}

Result<TriedPattern> Session::PatternDrift(int domain, const PatternQuery& query,
                                           const std::string& cursor) const {
  return Read<TriedPattern>(*this, [&] {
    const session::Known known = session::KnownDomain(*this, domain);
    const std::string pattern = session::PatternOf(known);
    return Try(known, pattern, query, cursor,
               [](const Tried& one) { return !MDOMAIN::CONTROL::INTERNAL::HasTriedAlias(one); });
  });
}

}  // namespace mdomain
