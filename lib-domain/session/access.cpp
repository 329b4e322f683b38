#include "lib-domain/session/access.h"

#include <algorithm>
#include <map>
#include <unordered_set>

#include "lib-domain/api/domain.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/group.h"
#include "lib-domain/control/pattern_trial.h"
#include "lib-domain/control/user.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/digest.h"
#include "platform/include/text.h"

namespace mdomain::session {

namespace {

// The indexes of his domains, at this moment. An account without any has none: never "all".
std::unordered_set<int> Delegated(unsigned int uid) {
  std::vector<int> idxs;
  if (!MDOMAIN::API::Domain().GetDelegatedDomainIds(uid, idxs)) {
    Fail("whose domains these are could not be read");
  }
  return {idxs.begin(), idxs.end()};
}

template <typename Record, typename Id, typename Ask, typename IdOf>
std::vector<Record> InOrder(const std::vector<std::uint32_t>& ids, const char* kind, const Ask& ask,
                            const IdOf& id_of) {
  std::vector<Record> found;
  if (ids.empty()) {
    return found;
  }
  if (!ask(found)) {
    Fail(std::string("the ") + kind + "s could not be read");
  }
  std::map<Id, Record> by_id;
  for (Record& record : found) {
    const Id id = id_of(record);
    by_id.emplace(id, std::move(record));
  }
  std::vector<Record> ordered;
  for (const std::uint32_t id : ids) {
    const auto record = by_id.find(id);
    if (record == by_id.end()) {
      Refuse(Reason::kNotFound,
             std::string("no ") + kind + " has the number " + std::to_string(id));
    }
    ordered.push_back(record->second);
  }
  return ordered;
}

}  // namespace

void RequireHost(const Session& session, const std::string& what) {
  if (SessionAccess::StateOf(session).administrator) {
    Refuse(Reason::kRefused, "the administrator of a domain may not " + what);
  }
}

bool IsAnyDomainOf(unsigned int uid) {
  return !Delegated(uid).empty();
}

std::vector<Known> KnownDomains(const Session& session) {
  std::vector<Known> domains = MDOMAIN::INSIGHT::ListKnownDomains();
  const auto& administrator = SessionAccess::StateOf(session).administrator;
  if (administrator) {
    const std::unordered_set<int> own = Delegated(*administrator);
    domains.erase(std::remove_if(domains.begin(), domains.end(),
                                 [&own](const Known& known) { return own.count(known.idx) == 0; }),
                  domains.end());
  }
  return domains;
}

const Known& DomainOf(const std::vector<Known>& domains, int domain) {
  const auto found = std::find_if(domains.begin(), domains.end(),
                                  [domain](const Known& known) { return known.idx == domain; });
  if (found == domains.end()) {
    Refuse(Reason::kNotFound, "there is no domain " + std::to_string(domain));
  }
  return *found;
}

Known KnownDomain(const Session& session, int domain) {
  return DomainOf(KnownDomains(session), domain);
}

std::optional<std::set<int>> OwnDomains(const Session& session) {
  if (!SessionAccess::StateOf(session).administrator) {
    return std::nullopt;
  }
  std::set<int> idxs;
  for (const Known& domain : KnownDomains(session)) {
    idxs.insert(domain.idx);
  }
  return idxs;
}

std::vector<MDOMAIN::RECORD::User> UsersOf(const std::vector<std::uint32_t>& uids) {
  using User = MDOMAIN::RECORD::User;
  const auto ask = [&uids](std::vector<User>& users) {
    MDOMAIN::DB::UserDBFilter filter;
    filter.SetUIDs(uids);
    return MDOMAIN::CONTROL::User().List(filter, users);
  };
  return InOrder<User, unsigned int>(uids, "user", ask,
                                     [](const User& user) { return user.GetUID(); });
}

std::vector<MDOMAIN::RECORD::Group> GroupsOf(const std::vector<std::uint32_t>& gids) {
  using Group = MDOMAIN::RECORD::Group;
  const auto ask = [&gids](std::vector<Group>& groups) {
    MDOMAIN::DB::GroupDBFilter filter;
    filter.SetGIDs(gids);
    return MDOMAIN::CONTROL::Group().List(filter, groups);
  };
  return InOrder<Group, unsigned int>(gids, "group", ask,
                                      [](const Group& group) { return group.GetGID(); });
}

Version VersionOf(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) {
    text += std::to_string(part.size()) + ":" + part;
  }
  return korvmailserver::DigestOf(text).substr(0, 32);
}

void RequireVersion(const Version& expected, const Version& is, const std::string& what) {
  if (!expected.empty() && expected != is) {
    Refuse(Reason::kChanged, what + " was changed meanwhile", "read it again");
  }
}

void RequireOne(std::size_t given, const std::string& what) {
  if (given != 1) {
    Refuse(Reason::kInvalid, "a version can be given for exactly one " + what);
  }
}

bool IsPlainText(const std::string& text) {
  return korvmailserver::VisibleText(text) == text;
}

void RequirePattern(const std::string& pattern, Refusals& refusals) {
  const std::string why = MDOMAIN::CONTROL::INTERNAL::WhyUselessPattern(pattern);
  if (!MDOMAIN::UTILS::IsDomainDefaultAliasPatternValid(pattern)) {
    refusals.Add("pattern", pattern, "has no placeholder");
  } else if (!why.empty()) {
    refusals.Add("pattern", pattern, why.substr(1));
  }
  if (!IsPlainText(pattern)) {
    refusals.Add("pattern", pattern, kNotPlain);
  }
}

void Refusals::End(Reason reason, const std::string& text) const {
  if (refused_.empty()) {
    return;
  }
  Error error;
  error.reason = reason;
  error.text = text;
  for (const Refused& refused : refused_) {
    error.text +=
        (&refused == &refused_.front() ? ": \"" : "; \"") + refused.value + "\" " + refused.why;
  }
  error.refused = refused_;
  throw Stop(std::move(error));
}

}  // namespace mdomain::session
