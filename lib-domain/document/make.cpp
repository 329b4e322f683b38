// Makes the model what a site says, with the calls that the other commands use, and compares.
#include <json/writer.h>

#include <algorithm>
#include <iterator>
#include <list>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/error_code.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/document/site.h"
#include "lib-domain/document/words.h"
#include "lib-domain/insight/known_domain.h"
#include "lib-domain/sync/follow_addresses.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::DOCUMENT {
namespace {

using API::AliasEntry;
using INSIGHT::KnownDomain;
using INSIGHT::ListKnownDomains;
using Kind = ::Alias::MemberKind;
using Names = std::vector<std::string>;

constexpr unsigned int kApiErrorTaken = 5618;

void Require(bool is_done, const std::string& what) {
  if (!is_done) {
    throw Problem(Problem::kFailed, what);
  }
}

Problem ProblemOf(unsigned int number, const std::string& action) {
  switch (number) {
    case kApiErrorTaken:
      return {Problem::kRefused, action +
                                     ": a domain already has this name, as its own or as an "
                                     "additional one, in this or the other spelling"};
    case BASE::kApiErrorInvalid:
      return {Problem::kRefused, action + ": the name or the alias pattern is not valid"};
    case BASE::kApiErrorAccounts:
      return {Problem::kFailed, action + ": the account system did not give all of its accounts"};
    case BASE::kApiErrorUnpublished:
      return {Problem::kUnpublished, action + ": done here, not published"};
    default:
      return {Problem::kFailed, action + " failed"};
  }
}

void Require(bool is_done, const API::Domain& api, const std::string& action) {
  if (!is_done) {
    throw ProblemOf(api.GetErrorCode(), action);
  }
}

// Those of `some` that are not in `others`.
Names Missing(const std::set<std::string>& some, const Names& others) {
  Names missing;
  const std::set<std::string> known(others.begin(), others.end());
  std::set_difference(some.begin(), some.end(), known.begin(), known.end(),
                      std::back_inserter(missing));
  return missing;
}

// In one line, the beginning of what is long.
std::string Shown(const Json::Value& value) {
  constexpr size_t kMost = 200;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  const std::string text = Json::writeString(builder, value);
  return text.size() > kMost ? text.substr(0, kMost) + "..." : text;
}

// Names that somebody else may need, before domains are made; domains that go give up all.
void GiveUpNames(const Site& wanted) {
  for (const KnownDomain& known : ListKnownDomains()) {
    const auto domain = wanted.domains.find(known.name);
    const Names kept = domain == wanted.domains.end()
                           ? Names()
                           : Names(domain->second.names.begin(), domain->second.names.end());
    const Names gone =
        Missing({known.additional_names.begin(), known.additional_names.end()}, kept);
    Require(gone.empty() || API::Domain().DeleteAdditionalDomains(known.idx, gone),
            "names of domain " + known.Title() + " could not be removed");
  }
}

// Of the domains that the site has not; the primary one stays until another one is.
void DeleteOthers(const Site& wanted) {
  std::vector<int> idxs;
  for (const KnownDomain& known : ListKnownDomains()) {
    if (!known.is_primary && wanted.domains.count(known.name) == 0) {
      idxs.push_back(known.idx);
    }
  }
  Require(idxs.empty() || API::Domain().Delete(idxs), "domains could not be deleted");
}

bool IsKnown(const std::vector<KnownDomain>& domains, const std::string& name) {
  return std::any_of(domains.begin(), domains.end(),
                     [&](const KnownDomain& known) { return known.name == name; });
}

void CreateDomains(const Site& wanted) {
  const std::vector<KnownDomain> domains = ListKnownDomains();
  API::Domain api;
  for (const auto& [name, domain] : wanted.domains) {
    if (!IsKnown(domains, name)) {
      RECORD::Domain record(name);
      record.SetIsPrimary(false);
      record.SetDomainDesc(domain.description);
      record.SetDefaultAliasPattern(domain.pattern);
      record.SetIsAutomaticallyAddingUsers(domain.adds_users);
      int idx = 0;
      Require(api.Create(record, idx), api, "creating \"" + name + "\"");
    }
  }
}

void SetDomains(const Site& wanted) {
  API::Domain api;
  std::map<int, RECORD::Domain> records;
  for (const RECORD::Domain& record : ListDomainRecords()) {
    records.emplace(record.GetDomainIdx(), record);
  }
  for (const KnownDomain& known : ListKnownDomains()) {
    const auto found = wanted.domains.find(known.name);
    if (found == wanted.domains.end()) {
      continue;
    }
    const SiteDomain& domain = found->second;
    if (domain.is_primary && !known.is_primary) {
      Require(api.SetPrimary(known.idx), "domain " + known.Title() + " could not become primary");
    }
    RECORD::Domain& record = records.at(known.idx);
    if (record.GetDomainDesc() != domain.description ||
        record.GetDefaultAliasPattern() != domain.pattern ||
        record.IsAutomaticallyAddingUsers() != domain.adds_users) {
      record.SetDomainDesc(domain.description);
      record.SetDefaultAliasPattern(domain.pattern);
      record.SetIsAutomaticallyAddingUsers(domain.adds_users);
      Require(api.Set(record), api, "changing \"" + known.name + "\"");
    }
  }
}

void AddNames(const Site& wanted) {
  API::Domain api;
  for (const KnownDomain& known : ListKnownDomains()) {
    const auto domain = wanted.domains.find(known.name);
    const Names more = domain == wanted.domains.end()
                           ? Names()
                           : Missing(domain->second.names, known.additional_names);
    Require(more.empty() || api.CreateAdditionalDomains(known.idx, more), api,
            "adding names to \"" + known.name + "\"");
  }
}

void MakeDomains(const Site& wanted) {
  GiveUpNames(wanted);
  DeleteOthers(wanted);
  CreateDomains(wanted);
  SetDomains(wanted);
  DeleteOthers(wanted);  // the one that was primary
  AddNames(wanted);
}

void MakeCopies(int idx, const SiteDomain& is, const SiteDomain& wanted) {
  std::list<BccInfo> gone;
  std::list<BccInfo> set;
  for (const auto& [key, to] : is.copies) {
    if (wanted.copies.count(key) == 0) {
      gone.push_back({key.second, key.first, to});
    }
  }
  for (const auto& [key, to] : wanted.copies) {
    const auto known = is.copies.find(key);
    if (known == is.copies.end() || known->second != to) {
      set.push_back({key.second, key.first, to});
    }
  }
  if (gone.empty() && set.empty()) {
    return;
  }
  BCC* bcc = BCC::getInstance(idx);
  Require(bcc != nullptr && (gone.empty() || bcc->deleteBCC(idx, gone) == 0) &&
              (set.empty() || bcc->setBCC(idx, set) == 0),
          "the blind copies could not be stored");
  bool are_old = false;
  Require(bcc->PublishRules() == 0, "the rules were changed but could not be published");
  Require(
      CONTROL::INTERNAL::AreBccMapsOld(are_old) && (!are_old || CONTROL::INTERNAL::MakeBccMaps()),
      "the rules were changed, but their maps could not be made");
}

void MakeDisclaimers(int idx, const SiteDomain& is, const SiteDomain& wanted,
                     const SiteAccounts& accounts) {
  if (is.disclaimers == wanted.disclaimers) {
    return;
  }
  MimeDefang mimedefang;
  const Json::Value list = DisclaimersWithIds(wanted.disclaimers, accounts);
  Require(mimedefang.LoadSettings() >= 0 && mimedefang.SetDisclaimerList(idx, list) >= 0 &&
              mimedefang.SaveSettings() >= 0,
          "the disclaimers could not be stored");
}

void MakeSettings(const Site& wanted) {
  for (const char* key : kSiteSettings) {
    std::string is;
    const auto found = wanted.settings.find(key);
    const std::string value = found == wanted.settings.end() ? "" : found->second;
    Require(mailConfGet(key, is) >= 0 && (is == value || mailConfSet(key, value, true, 0) >= 0),
            "the configuration could not be written");
    Require(is == value || UTILS::FollowAddresses(), "the maps for Postfix could not follow");
  }
}

::Alias::Entry Stored(int idx, const std::string& name, const SiteEntry& entry,
                      const SiteAccounts& accounts) {
  ::Alias::Entry stored{name, idx, {}};
  for (const std::string& user : entry.users) {
    const SiteAccount* account = accounts.users.Find(user);
    stored.members.push_back({Kind::User, account == nullptr ? user : account->full_name});
  }
  for (const std::string& group : entry.groups) {
    const SiteAccount* account = accounts.groups.Find(group);
    stored.members.push_back({Kind::Group, account == nullptr ? group : account->full_name});
  }
  for (const std::string& address : entry.addresses) {
    stored.members.push_back({Kind::Address, address});
  }
  return stored;
}

// A name that differs in letter case alone is another one, and made anew.
void DeleteEntries(int idx, const SiteDomain& is, const SiteDomain& wanted) {
  for (const auto& entry : is.entries) {
    Require(wanted.entries.count(entry.first) != 0 ||
                AliasEntry().Delete(idx, entry.first) == AliasEntry::Result::kDone,
            "the entry " + entry.first + " could not be deleted");
  }
}

// A domain of the site that is there, as it is and as it should be.
struct Pair {
  int idx;
  const std::string& name;
  SiteDomain is;
  const SiteDomain& wanted;
};

std::vector<Pair> Pairs(const Site& wanted, const SiteAccounts& accounts) {
  SiteReader reader(accounts);
  std::vector<Pair> pairs;
  for (const KnownDomain& known : ListKnownDomains()) {
    const auto found = wanted.domains.find(known.name);
    if (found != wanted.domains.end()) {
      pairs.push_back({known.idx, found->first, {}, found->second});
      reader.ReadMembers(known.idx, known.name, pairs.back().is);
      reader.ReadEntries(known.idx, pairs.back().is);
    }
  }
  return pairs;
}

// Of all domains at once: an entry may lead to one of another domain.
void SetEntries(std::vector<Pair>& pairs, const SiteAccounts& accounts,
                std::vector<std::string>& warnings) {
  SiteReader reader(accounts);
  std::vector<::Alias::Entry> changed;
  for (Pair& pair : pairs) {
    pair.is.entries.clear();
    reader.ReadEntries(pair.idx, pair.is);
    for (const auto& [name, entry] : pair.wanted.entries) {
      const auto known = pair.is.entries.find(name);
      if (known == pair.is.entries.end() || !(known->second == entry)) {
        changed.push_back(Stored(pair.idx, name, entry, accounts));
      }
    }
  }
  if (changed.empty()) {
    return;
  }
  AliasEntry api;
  Names dead_ends;
  const AliasEntry::Result result = api.SetAll(changed, dead_ends);
  if (result != AliasEntry::Result::kDone && result != AliasEntry::Result::kUnpublished) {
    throw Problem(api.Problem().empty() ? Problem::kFailed : Problem::kRefused,
                  "addresses with several members cannot be made" +
                      (api.Problem().empty() ? "" : ", because of \"" + api.Problem() + "\""));
  }
  for (const std::string& sentence : dead_ends) {
    warnings.push_back(sentence);
  }
}

void MakePolicies(const std::vector<Pair>& pairs, const SiteAccounts& accounts) {
  SiteReader reader(accounts);
  for (const Pair& pair : pairs) {
    SiteDomain is;
    reader.ReadPolicies(pair.idx, pair.name, is);
    MakeCopies(pair.idx, is, pair.wanted);
    MakeDisclaimers(pair.idx, is, pair.wanted, accounts);
  }
}

bool SameMembers(const SiteDomain& is, const SiteDomain& wanted) {
  return is.groups == wanted.groups && is.users == wanted.users && is.removed == wanted.removed;
}

// Where the elements of both stand under names, which are in one order: the first that differs.
std::string FirstNamedDifference(const Json::Value& is, const Json::Value& wanted,
                                 const std::string& path) {
  std::map<std::string, std::pair<Json::Value, Json::Value>> both;
  for (const Json::Value& one : is) {
    both[one["name"].asString()].first = one;
  }
  for (const Json::Value& one : wanted) {
    both[one["name"].asString()].second = one;
  }
  for (const auto& [name, sides] : both) {
    std::string place = path;
    place.append("[").append(name).append("]");
    if (sides.second.isNull()) {
      return place + ": would be there as well: " + Shown(sides.first);
    }
    if (sides.first.isNull()) {
      return place + ": would not be there: " + Shown(sides.second);
    }
    std::string inside = FirstDifference(sides.first, sides.second, place);
    if (!inside.empty()) {
      return inside;
    }
  }
  return "";
}

bool HaveNames(const Json::Value& list) {
  std::set<std::string> names;
  return std::all_of(list.begin(), list.end(), [&names](const Json::Value& one) {
    return one.isObject() && one["name"].isString() && names.insert(one["name"].asString()).second;
  });
}

}  // namespace

std::string FirstDifference(const Json::Value& is, const Json::Value& wanted,
                            const std::string& path) {
  if (is == wanted) {
    return "";
  }
  if (is.isArray() && wanted.isArray()) {
    if (HaveNames(is) && HaveNames(wanted)) {
      return FirstNamedDifference(is, wanted, path);
    }
    const Json::ArrayIndex both = std::min(is.size(), wanted.size());
    for (Json::ArrayIndex i = 0; i < both; ++i) {
      std::string inside = FirstDifference(is[i], wanted[i], path + "[" + std::to_string(i) + "]");
      if (!inside.empty()) {
        return inside;
      }
    }
    return wanted.size() > both ? path + ": cannot have " + Shown(wanted[both])
                                : path + ": would have " + Shown(is[both]) + " as well";
  }
  if (is.isObject() && wanted.isObject()) {
    const std::string begin = path + ".";
    for (const std::string& name : wanted.getMemberNames()) {
      std::string inside = FirstDifference(is[name], wanted[name], begin + name);
      if (!inside.empty()) {
        return inside;
      }
    }
  }
  return path + ": cannot be " + Shown(wanted) + ", it would be " + Shown(is);
}

void MakeSite(const Site& wanted, const SiteAccounts& accounts,
              std::vector<std::string>& warnings) {
  const Json::Value document = SiteJson(wanted);
  if (SiteJson(ReadSite(accounts)) == document) {
    return;
  }
  MakeDomains(wanted);
  std::vector<Pair> pairs = Pairs(wanted, accounts);
  std::list<SiteMembers> changed;
  for (const Pair& pair : pairs) {
    DeleteEntries(pair.idx, pair.is, pair.wanted);
    if (!SameMembers(pair.is, pair.wanted)) {
      changed.emplace_back(pair.idx, pair.name, pair.is, pair.wanted, accounts).Make();
    }
  }
  SetEntries(pairs, accounts, warnings);
  for (SiteMembers& members : changed) {
    members.AddTakenAliases();
  }
  // Copies and disclaimers of one domain may name what another one has now.
  MakePolicies(pairs, accounts);
  MakeSettings(wanted);
  const std::string difference = FirstDifference(SiteJson(ReadSite(accounts)), document);
  if (!difference.empty()) {
    throw Problem(Problem::kRefused, difference);
  }
}

}  // namespace MDOMAIN::DOCUMENT
