// Blind copies and disclaimers of domains. Those of a domain's administrator are about his domain.
#include <algorithm>
#include <list>
#include <set>
#include <utility>

#include "lib-domain/api/bcc.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/insight/disclaimer_reach.h"
#include "lib-domain/insight/disclaimer_rows.h"
#include "lib-domain/insight/explanation.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/json_text.h"

namespace mdomain {

using session::Change;
using session::Fail;
using session::Known;
using session::Read;
using session::Refusals;

namespace {

constexpr Copy::Of kKinds[] = {Copy::Of::kMailTo, Copy::Of::kMailFrom, Copy::Of::kWholeDomain};

int TypeOf(Copy::Of of) {
  return of == Copy::Of::kMailTo     ? BCC_RECIPIENT
         : of == Copy::Of::kMailFrom ? BCC_SENDER
                                     : BCC_DOMAIN;
}

BCC& Rules(int domain) {
  BCC* bcc = BCC::getInstance(domain);
  if (bcc == nullptr) {
    Fail("the blind copies could not be opened");
  }
  return *bcc;
}

// "" for an account or an alias, which is meant within the domain.
std::string DomainOf(const Copy& copy) {
  const size_t at = copy.name.rfind('@');
  return copy.of == Copy::Of::kWholeDomain ? copy.name
         : at == std::string::npos         ? ""
                                           : copy.name.substr(at + 1);
}

// A rule belongs to the domain of its address, so that it goes with it.
void RequireCopies(const Session& session, const Known& domain, const std::vector<Copy>& copies,
                   Refusals& refusals) {
  std::vector<Known> all = session::KnownDomains(Session());
  const bool is_host = !SessionAccess::StateOf(session).administrator;
  for (const Copy& copy : copies) {
    const std::string problem = BCC::CheckRule({copy.name, TypeOf(copy.of), copy.to});
    const std::string name = DomainOf(copy);
    if (!problem.empty()) {
      refusals.Add("copy", copy.name, "cannot be copied: " + problem);
    } else if (!name.empty() && !domain.HasName(name) &&
               (!is_host || copy.of == Copy::Of::kWholeDomain ||
                std::any_of(all.begin(), all.end(),
                            [&](const Known& other) { return other.HasName(name); }))) {
      refusals.Add("copy", copy.name, "does not belong to domain " + domain.Title());
    }
  }
}

std::list<BccInfo> RulesOf(const std::vector<Copy>& copies) {
  std::list<BccInfo> rules;
  for (const Copy& copy : copies) {
    rules.push_back({copy.name, TypeOf(copy.of), copy.to});
  }
  return rules;
}

std::vector<Copy> CopiesOf(int domain) {
  std::vector<Copy> copies;
  for (const Copy::Of of : kKinds) {
    if (Rules(domain).ForEachRule(TypeOf(of), domain, 0, -1, "name", "asc",
                                  [&](const BccInfo& rule) {
                                    copies.push_back({of, rule.name, rule.bcc_to});
                                  }) != 0) {
      Fail("the blind copies could not be read");
    }
  }
  return copies;
}

void RequireStored(const Known& domain, const std::vector<Copy>& copies) {
  std::set<std::pair<Copy::Of, std::string>> stored;
  for (const Copy& copy : CopiesOf(domain.idx)) {
    stored.emplace(copy.of, copy.name);
  }
  Refusals refusals;
  for (const Copy& copy : copies) {
    if (stored.count({copy.of, copy.name}) == 0) {
      refusals.Add("copy", copy.name, "has no such copy in domain " + domain.Title());
    }
  }
  refusals.End(Reason::kNotFound, "no copy was removed");
}

void PublishRules(BCC& bcc) {
  bool are_old = false;
  if (bcc.PublishRules() != 0 || !MDOMAIN::CONTROL::INTERNAL::AreBccMapsOld(are_old) ||
      (are_old && !MDOMAIN::CONTROL::INTERNAL::MakeBccMaps())) {
    Fail("the maps of the blind copies could not be made");
  }
}

Disclaimers DisclaimersOf(const Known& domain) {
  MimeDefang mimedefang;
  Json::Value list;
  if (mimedefang.GetDisclaimerList(domain.idx, list) < 0) {
    Fail("the disclaimers of domain " + domain.Title() + " could not be read");
  }
  Disclaimers disclaimers;
  disclaimers.json = session::JsonText(list);
  disclaimers.version = session::VersionOf({disclaimers.json});
  return disclaimers;
}

// Whether all mail that the rule fits is from or to an address of the domain. Rules about accounts
// fit their aliases at every domain of the host.
bool IsOwnRule(const Known& domain, const Json::Value& rule) {
  const std::string pattern = rule["pattern"].asString();
  const size_t at = pattern.rfind('@');
  return rule["pattern_type"] == "email" && at != std::string::npos &&
         domain.HasName(pattern.substr(at + 1));
}

bool IsAboutGroup(const Json::Value& rule) {
  return rule["pattern_type"] == "gid";
}

// What a group's rule adds to the filter holds for the disclaimers of all domains.
void RequireOwnRules(const Known& domain, const Json::Value& list, Refusals& refusals) {
  const auto is_own = [&domain](const Json::Value& rule) { return IsOwnRule(domain, rule); };
  for (const Json::Value& disclaimer : list) {
    const Json::Value& rules = disclaimer["match_rule_list"];
    const Json::Value& exceptions = disclaimer["exception_rule_list"];
    const bool is_about_own = disclaimer["op"] == "and"
                                  ? std::any_of(rules.begin(), rules.end(), is_own)
                                  : std::all_of(rules.begin(), rules.end(), is_own);
    if (!is_about_own) {
      refusals.Add("disclaimer", disclaimer["name"].asString(),
                   "fits mail that is not of domain " + domain.Title());
    } else if (std::any_of(rules.begin(), rules.end(), IsAboutGroup) ||
               std::any_of(exceptions.begin(), exceptions.end(), IsAboutGroup)) {
      refusals.Add("disclaimer", disclaimer["name"].asString(),
                   "has a rule about a group, which concerns other domains");
    }
  }
}

Json::Value RequireDisclaimers(const Session& session, const Known& domain,
                               const std::string& text) {
  Json::Value list;
  std::string problem = session::ParseJson(text, list);
  Refusals refusals;
  if (!problem.empty() || !MimeDefang::CheckDisclaimerList(list, problem)) {
    refusals.Add("disclaimer", "", problem);
  } else if (SessionAccess::StateOf(session).administrator) {
    RequireOwnRules(domain, list, refusals);
  }
  refusals.End(Reason::kInvalid, "the disclaimers stay as they are");
  return list;
}

void RequireMailbox(const std::string& address) {
  std::string local_part;
  std::string name;
  if (!MDOMAIN::INSIGHT::SplitAddress(address, local_part, name)) {
    session::Refuse(Reason::kInvalid, "\"" + address + "\" is no address");
  }
}

std::vector<int> IndexesOf(const Json::Value& list) {
  std::vector<int> indexes;
  for (const Json::Value& index : list) {
    indexes.push_back(index.asInt());
  }
  return indexes;
}

}  // namespace

Result<std::vector<Copy>> Session::Copies(int domain) const {
  return Read<std::vector<Copy>>(*this, [&] {
    session::KnownDomain(*this, domain);
    return CopiesOf(domain);
  });
}

Result<Nothing> Session::AddCopies(int domain, const std::vector<Copy>& copies) {
  return Change<Nothing>(*this, "add copies to domain " + std::to_string(domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    Refusals refusals;
    RequireCopies(*this, known, copies, refusals);
    refusals.End(Reason::kInvalid, "no copy was added");
    BCC& bcc = Rules(domain);
    if (bcc.setBCC(domain, RulesOf(copies)) != 0) {
      Fail("the blind copies could not be stored");
    }
    PublishRules(bcc);
    return Nothing();
  });
}

Result<Nothing> Session::RemoveCopies(int domain, const std::vector<Copy>& copies) {
  return Change<Nothing>(*this, "remove copies of domain " + std::to_string(domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    RequireStored(known, copies);
    BCC& bcc = Rules(domain);
    if (bcc.deleteBCC(domain, RulesOf(copies)) != 0) {
      Fail("the blind copies could not be removed");
    }
    PublishRules(bcc);
    return Nothing();
  });
}

Result<Disclaimers> Session::GetDisclaimers(int domain) const {
  return Read<Disclaimers>(*this,
                           [&] { return DisclaimersOf(session::KnownDomain(*this, domain)); });
}

Result<DisclaimerReach> Session::TryDisclaimer(int domain, const std::string& json) const {
  return Read<DisclaimerReach>(*this, [&] {
    const Known known = session::KnownDomain(*this, domain);
    const Json::Value list = RequireDisclaimers(*this, known, "[" + json + "]");
    if (list.size() != 1) {
      session::Refuse(Reason::kInvalid, "that is not one disclaimer");
    }
    return MDOMAIN::INSIGHT::ReachOf(known, list[0]);
  });
}

Result<std::vector<DisclaimerVerdict>> Session::ExplainDisclaimers(int domain,
                                                                   const std::string& from,
                                                                   const std::string& to) const {
  using Verdicts = std::vector<DisclaimerVerdict>;
  return Read<Verdicts>(*this, [&] {
    const Known known = session::KnownDomain(*this, domain);
    RequireMailbox(to);
    if (!from.empty()) {
      RequireMailbox(from);
    }
    MimeDefang mimedefang;
    Json::Value list;
    Json::Value config;
    if (mimedefang.GetDisclaimerList(domain, list) < 0 ||
        mimedefang.ExplainDisclaimerConfigs(domain, config) < 0) {
      Fail("the disclaimers of domain " + known.Title() + " could not be worked out");
    }
    const Json::Value rows = MDOMAIN::INSIGHT::DisclaimerRows(
        list, config, MDOMAIN::INSIGHT::AnswersOf(config, from, to));
    Verdicts verdicts;
    for (const Json::Value& row : rows) {
      verdicts.push_back({row["id"].asInt(), row["name"].asString(), row["applies"].asBool(),
                          row["reason"].asString(), IndexesOf(row["matched"]),
                          IndexesOf(row["excepted"]), IndexesOf(row["match_left_out"]),
                          IndexesOf(row["exceptions_left_out"])});
    }
    return verdicts;
  });
}

Result<Disclaimers> Session::SetDisclaimers(int domain, const std::string& json,
                                            const Version& version) {
  return Change<Disclaimers>(*this, "set disclaimers of domain " + std::to_string(domain), [&] {
    const Known known = session::KnownDomain(*this, domain);
    session::RequireVersion(version, DisclaimersOf(known).version, "a disclaimer");
    const Json::Value list = RequireDisclaimers(*this, known, json);
    MimeDefang mimedefang;
    if (mimedefang.LoadSettings() < 0 || mimedefang.SetDisclaimerList(domain, list) < 0 ||
        mimedefang.SaveSettings() < 0) {
      Fail("the disclaimers of domain " + known.Title() + " could not be stored");
    }
    return DisclaimersOf(known);
  });
}

}  // namespace mdomain
