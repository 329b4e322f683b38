// Makes the model what a site says, with the calls that the other commands use, and compares.
#include <json/writer.h>

#include <algorithm>
#include <iterator>
#include <list>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/sync/follow_addresses.h"
#include "platform/include/mail_conf.h"
#include "tools/mdomain/bcc_maps.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/output.h"
#include "tools/mdomain/site.h"
#include "tools/mdomain/site_words.h"
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using MDOMAIN::API::AliasEntry;
using Kind = ::Alias::MemberKind;
using Names = std::vector<std::string>;

void Require(bool is_done, const std::string& what) {
  if (!is_done) {
    throw Failure(kFailed, what);
  }
}

void Require(bool is_done, const MDOMAIN::API::Domain& api, const std::string& action) {
  if (!is_done) {
    throw ApiFailure(api.GetErrorCode(), action);
  }
}

// Those of `some` that are not in `others`.
Names Missing(const std::set<std::string>& some, const Names& others) {
  Names missing;
  std::copy_if(some.begin(), some.end(), std::back_inserter(missing), [&](const auto& name) {
    return std::find(others.begin(), others.end(), name) == others.end();
  });
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

// Names that somebody else may need, before domains are made.
void GiveUpNames(const Site& wanted) {
  const Domains domains;
  for (const KnownDomain& known : domains.all()) {
    const auto domain = wanted.domains.find(known.name);
    if (domain != wanted.domains.end()) {
      const Names kept(domain->second.names.begin(), domain->second.names.end());
      const Names gone =
          Missing({known.additional_names.begin(), known.additional_names.end()}, kept);
      Require(gone.empty() || MDOMAIN::API::Domain().DeleteAdditionalDomains(known.idx, gone),
              "names of domain " + known.Title() + " could not be removed");
    }
  }
}

// Of the domains that the site has not; the primary one stays until another one is.
void DeleteOthers(const Site& wanted) {
  const Domains domains;
  std::vector<int> idxs;
  for (const KnownDomain& known : domains.all()) {
    if (!known.is_primary && wanted.domains.count(known.name) == 0) {
      idxs.push_back(known.idx);
    }
  }
  Require(idxs.empty() || MDOMAIN::API::Domain().Delete(idxs), "domains could not be deleted");
}

bool IsKnown(const Domains& domains, const std::string& name) {
  return std::any_of(domains.all().begin(), domains.all().end(),
                     [&](const KnownDomain& known) { return known.name == name; });
}

void CreateDomains(const Site& wanted) {
  const Domains domains;
  MDOMAIN::API::Domain api;
  for (const auto& [name, domain] : wanted.domains) {
    if (!IsKnown(domains, name)) {
      MDOMAIN::RECORD::Domain record(name);
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
  const Domains domains;
  MDOMAIN::API::Domain api;
  for (const KnownDomain& known : domains.all()) {
    const auto found = wanted.domains.find(known.name);
    if (found == wanted.domains.end()) {
      continue;
    }
    const SiteDomain& domain = found->second;
    if (domain.is_primary && !known.is_primary) {
      Require(api.SetPrimary(known.idx), "domain " + known.Title() + " could not become primary");
    }
    MDOMAIN::RECORD::Domain record = DomainRecords({known.idx}).front();
    if (record.GetDomainDesc() != domain.description ||
        record.GetDefaultAliasPattern() != domain.pattern ||
        record.IsAutomaticallyAddingUsers() != domain.adds_users) {
      record.SetDomainDesc(domain.description);
      record.SetDefaultAliasPattern(domain.pattern);
      record.SetIsAutomaticallyAddingUsers(domain.adds_users);
      Require(api.Set(record), api, "changing \"" + known.name + "\"");
    }
    const Names more = Missing(domain.names, known.additional_names);
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
  PublishBccRules(*bcc);
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
    Require(is == value || MDOMAIN::UTILS::FollowAddresses(),
            "the maps for Postfix could not follow");
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
void DeleteEntries(int idx, const std::map<std::string, SiteEntry>& is,
                   const std::map<std::string, SiteEntry>& wanted) {
  for (const auto& entry : is) {
    Require(wanted.count(entry.first) != 0 ||
                AliasEntry().Delete(idx, entry.first) == AliasEntry::Result::kDone,
            "the entry " + entry.first + " could not be deleted");
  }
}

}  // namespace

// An entry may lead to another one that is not there yet: it waits until that one is.
void MakeSiteEntries(int idx, const std::string& name, const std::map<std::string, SiteEntry>& is,
                     const std::map<std::string, SiteEntry>& wanted, const SiteAccounts& accounts) {
  DeleteEntries(idx, is, wanted);
  std::vector<std::pair<std::string, SiteEntry>> waiting;
  for (const auto& entry : wanted) {
    const auto known = is.find(entry.first);
    if (known == is.end() || !(known->second == entry.second)) {
      waiting.push_back(entry);
    }
  }
  size_t before = waiting.size() + 1;
  std::string problem;
  while (!waiting.empty() && waiting.size() < before) {
    before = waiting.size();
    std::vector<std::pair<std::string, SiteEntry>> later;
    for (const auto& entry : waiting) {
      AliasEntry api;
      const ::Alias::Entry stored = Stored(idx, entry.first, entry.second, accounts);
      const bool is_new = is.count(entry.first) == 0;
      if ((is_new ? api.Create(stored) : api.Set(stored)) != AliasEntry::Result::kDone) {
        later.push_back(entry);
        problem = "domain " + name + ": the entry \"" + entry.first + "\" cannot be made" +
                  (api.Problem().empty() ? "" : ", because of \"" + api.Problem() + "\"");
      }
    }
    waiting.swap(later);
  }
  if (!waiting.empty()) {
    throw Failure(kRefused, problem);
  }
}

std::string FirstDifference(const Json::Value& is, const Json::Value& wanted,
                            const std::string& path) {
  if (is == wanted) {
    return "";
  }
  if (is.isArray() && wanted.isArray()) {
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

void MakeSite(const Site& wanted, const SiteAccounts& accounts) {
  MakeDomains(wanted);
  const Domains domains;
  for (const KnownDomain& known : domains.all()) {
    const auto found = wanted.domains.find(known.name);
    if (found == wanted.domains.end()) {
      continue;
    }
    MakeSiteDomain(known.idx, known.name, found->second, accounts);
  }
  // Copies and disclaimers of one domain may name what another one has now.
  for (const KnownDomain& known : domains.all()) {
    const auto found = wanted.domains.find(known.name);
    if (found != wanted.domains.end()) {
      const SiteDomain is = ReadSiteDomain(known.idx, known.name, accounts);
      MakeCopies(known.idx, is, found->second);
      MakeDisclaimers(known.idx, is, found->second, accounts);
    }
  }
  MakeSettings(wanted);
  const std::string difference = FirstDifference(SiteJson(ReadSite(accounts)), SiteJson(wanted));
  if (!difference.empty()) {
    throw Failure(kRefused, difference);
  }
}

}  // namespace mdomain
