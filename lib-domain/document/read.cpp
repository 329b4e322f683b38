// What is stored, as a site, and a site as a document.
#include <algorithm>
#include <unordered_set>

#include "lib-domain/api/alias_entry.h"
#include "lib-domain/api/bcc.h"
#include "lib-domain/api/domain.h"
#include "lib-domain/api/domain_group.h"
#include "lib-domain/api/domain_user.h"
#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/document/site.h"
#include "lib-domain/document/words.h"
#include "lib-domain/record/domain.h"
#include "lib-domain/sync/special_address.h"
#include "platform/include/mail_conf.h"

namespace MDOMAIN::DOCUMENT {
namespace {

using API::DomainUser;
using MemberKind = ::Alias::MemberKind;
using AliasFlag = DB::DomainUser::AliasFlag;

[[noreturn]] void CannotRead(const std::string& what, const std::string& domain) {
  throw Problem(Problem::kFailed, "the " + what + " of domain " + domain + " could not be read");
}

Json::Value JsonTexts(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) {
    array.append(text);
  }
  return array;
}

void ReadGroups(int idx, const std::string& name, const SiteAccounts& accounts,
                SiteDomain& domain) {
  DB::DomainDBFilter filter("domain_group_view");
  filter.SetDomainIdxs({idx});
  filter.SetLimit(-1);
  std::vector<RECORD::DomainGroup> groups;
  if (!API::DomainGroup().List(filter, groups)) {
    CannotRead("groups", name);
  }
  for (const auto& group : groups) {
    if (const SiteAccount* account = accounts.groups.FindId(group.GetGID())) {
      domain.groups[account->name] = group.GetRole();
    }
  }
}

// A removal counts as long as a group of the domain would bring the member back.
void ReadRemoved(int idx, const std::string& name, const SiteAccounts& accounts,
                 SiteDomain& domain) {
  std::unordered_set<unsigned int> uids;
  std::unordered_map<unsigned int, std::string> role_by_member;
  if (!DomainUser().GetAllRemovedUIDs(idx, uids) ||
      !DB::DomainGroup().GetResultGroupRoles(idx, role_by_member)) {
    CannotRead("removed members", name);
  }
  for (const unsigned int uid : uids) {
    const SiteAccount* account = accounts.users.FindId(uid);
    if (account != nullptr && role_by_member.count(uid) != 0 &&
        domain.users.count(account->name) == 0) {
      domain.removed.insert(account->name);
    }
  }
}

// An account that is not mirrored any more keeps the name it was stored under.
std::string NameOf(const SiteAccountList& accounts, const std::string& stored) {
  const SiteAccount* account = accounts.Find(stored);
  return account == nullptr ? stored : account->name;
}

// An account in a rule, which may stand there with its directory's part.
std::string RuleName(const SiteAccounts& accounts, const std::string& stored) {
  return stored.find('@') == std::string::npos ? NameOf(accounts.users, stored) : stored;
}

void ReadCopies(int idx, const std::string& name, const SiteAccounts& accounts,
                SiteDomain& domain) {
  BCC* bcc = BCC::getInstance(idx);
  for (const auto& [type, word] : kCopyTypes) {
    if (bcc == nullptr ||
        bcc->ForEachRule(type, idx, 0, -1, "name", "asc", [&](const BccInfo& rule) {
          domain.copies[{rule.type, RuleName(accounts, rule.name)}] =
              RuleName(accounts, rule.bcc_to);
        }) != 0) {
      CannotRead(std::string("blind copies for a ") + word, name);
    }
  }
}

void ReadDisclaimers(int idx, const std::string& name, const SiteAccounts& accounts,
                     SiteDomain& domain) {
  MimeDefang mimedefang;
  if (mimedefang.GetDisclaimerList(idx, domain.disclaimers) < 0) {
    CannotRead("disclaimers", name);
  }
  ForEachAccountRule(domain.disclaimers, [&](Json::Value& rule) {
    const bool is_user = rule["pattern_type"] == Json::Value("uid");
    unsigned int id = 0;
    const SiteAccount* account = (is_user || rule["pattern_type"] == Json::Value("gid")) &&
                                         BASE::ConvertToUID(rule["pattern"].asString(), id)
                                     ? (is_user ? accounts.users : accounts.groups).FindId(id)
                                     : nullptr;
    if (account != nullptr) {
      rule["pattern_type"] = is_user ? "user" : "group";
      rule["pattern"] = account->name;
    }
    return true;
  });
}

Json::Value UserJson(const std::string& name, const SiteUser& user) {
  Json::Value value;
  value["name"] = name;
  value["aliases"] = JsonTexts(user.aliases);
  if (!user.role.empty()) {
    value["role"] = user.role;
  }
  if (!user.taken.empty()) {
    value["taken"] = JsonTexts(user.taken);
  }
  return value;
}

Json::Value EntryJson(const std::string& name, const SiteEntry& entry) {
  Json::Value value;
  value["name"] = name;
  for (const auto& [member, texts] : {std::pair("users", &entry.users),
                                      {"groups", &entry.groups},
                                      {"addresses", &entry.addresses}}) {
    if (!texts->empty()) {
      value[member] = JsonTexts(*texts);
    }
  }
  return value;
}

Json::Value DomainJson(const std::string& name, const SiteDomain& domain) {
  Json::Value value;
  value["name"] = name;
  value["primary"] = domain.is_primary;
  value["description"] = domain.description;
  value["pattern"] = domain.pattern;
  value["auto_add"] = domain.adds_users;
  value["names"] = JsonTexts({domain.names.begin(), domain.names.end()});
  value["removed"] = JsonTexts({domain.removed.begin(), domain.removed.end()});
  value["disclaimers"] = domain.disclaimers;
  for (const char* member : {"groups", "users", "entries", "copies"}) {
    value[member] = Json::Value(Json::arrayValue);
  }
  for (const auto& [group, role] : domain.groups) {
    Json::Value record;
    record["name"] = group;
    record["role"] = role;
    value["groups"].append(record);
  }
  for (const auto& [user, record] : domain.users) {
    value["users"].append(UserJson(user, record));
  }
  for (const auto& [entry, record] : domain.entries) {
    value["entries"].append(EntryJson(entry, record));
  }
  for (const auto& [key, destination] : domain.copies) {
    Json::Value record;
    record["type"] = CopyTypeWord(key.first);
    record["name"] = key.second;
    record["to"] = destination;
    value["copies"].append(record);
  }
  return value;
}

}  // namespace

std::vector<RECORD::Domain> ListDomainRecords() {
  DB::DomainDBFilter filter;
  filter.SetLimit(-1);
  std::vector<RECORD::Domain> records;
  if (!API::Domain().List(filter, records)) {
    throw Problem(Problem::kFailed, "the domains could not be read");
  }
  return records;
}

bool SiteReader::IsAdded(int idx, unsigned int uid) {
  if (!has_added_) {
    std::vector<RECORD::DomainUserRole> roles;
    if (!DomainUser().GetAutoAddedUsersRoles(roles)) {
      throw Problem(Problem::kFailed, "the roles could not be read");
    }
    for (const auto& role : roles) {
      added_.emplace(role.GetDomainIdx(), role.GetUID());
    }
    has_added_ = true;
  }
  return added_.count({idx, uid}) != 0;
}

// Somebody who has aliases and no role for the moment is in no domain: the next refresh decides.
void SiteReader::ReadUsers(int idx, const std::string& name, SiteDomain& domain) {
  DB::DomainDBFilter filter;
  filter.SetDomainIdxs({idx});
  filter.SetLimit(-1);
  const auto add_role = [&](RECORD::DomainUser& user) {
    if (const SiteAccount* account = accounts_.users.FindId(user.GetUID())) {
      const bool is_added = user.GetRole() == "normal" && IsAdded(idx, user.GetUID());
      domain.users[account->name].role = user.IsUnderGroupControl() ? kRoleOfGroups
                                         : is_added                 ? ""
                                                                    : user.GetRole();
    }
  };
  const auto add_alias = [&](int, std::string&& user_name, std::string&& alias, AliasFlag flag) {
    const SiteAccount* account = accounts_.users.Find(user_name);
    const auto user = account == nullptr ? domain.users.end() : domain.users.find(account->name);
    if (user != domain.users.end() && flag != AliasFlag::kNoRole) {
      (flag == AliasFlag::kPlain ? user->second.aliases : user->second.taken)
          .push_back(std::move(alias));
    }
    return true;
  };
  if (!DomainUser().ForEach(filter, add_role) || !DB::DomainUser().ForEachAlias({idx}, add_alias)) {
    CannotRead("users", name);
  }
  // Their stored order changes whenever a flag does.
  for (auto& user : domain.users) {
    std::sort(user.second.aliases.begin(), user.second.aliases.end());
    std::sort(user.second.taken.begin(), user.second.taken.end());
  }
}

void SiteReader::ReadMembers(int idx, const std::string& name, SiteDomain& domain) {
  ReadGroups(idx, name, accounts_, domain);
  ReadUsers(idx, name, domain);
  ReadRemoved(idx, name, accounts_, domain);
}

void SiteReader::ReadEntries(int idx, SiteDomain& domain) {
  if (!has_entries_) {
    std::vector<::Alias::Entry> entries;
    if (!API::AliasEntry().List(entries)) {
      throw Problem(Problem::kFailed, "the addresses with several members could not be read");
    }
    for (::Alias::Entry& entry : entries) {
      entries_.emplace(entry.domain_id, std::move(entry));
    }
    has_entries_ = true;
  }
  const auto [begin, end] = entries_.equal_range(idx);
  for (auto stored = begin; stored != end; ++stored) {
    SiteEntry& entry = domain.entries[stored->second.name];
    for (const ::Alias::Member& member : stored->second.members) {
      if (member.kind == MemberKind::User) {
        entry.users.push_back(NameOf(accounts_.users, member.name));
      } else if (member.kind == MemberKind::Group) {
        entry.groups.push_back(NameOf(accounts_.groups, member.name));
      } else {
        entry.addresses.push_back(member.name);
      }
    }
  }
}

void SiteReader::ReadPolicies(int idx, const std::string& name, SiteDomain& domain) const {
  ReadCopies(idx, name, accounts_, domain);
  ReadDisclaimers(idx, name, accounts_, domain);
}

Site ReadSite(const SiteAccounts& accounts) {
  const DB::ReadScope one_moment;
  Site site;
  SiteReader reader(accounts);
  std::map<int, std::vector<std::string>> names;
  if (!API::Domain().ListAllAdditionalDomains(names)) {
    throw Problem(Problem::kFailed, "the names of the domains could not be read");
  }
  for (const RECORD::Domain& record : ListDomainRecords()) {
    const int idx = record.GetDomainIdx();
    const std::string name = record.GetDomainName();
    SiteDomain& domain = site.domains[name];
    reader.ReadMembers(idx, name, domain);
    reader.ReadEntries(idx, domain);
    reader.ReadPolicies(idx, name, domain);
    domain.description = record.GetDomainDesc();
    domain.pattern = record.GetDefaultAliasPattern();
    domain.adds_users = record.IsAutomaticallyAddingUsers();
    domain.is_primary = record.IsPrimary();
    domain.names = {names[idx].begin(), names[idx].end()};
  }
  for (const char* key : kSiteSettings) {
    std::string value;
    if (mailConfGet(key, value) < 0) {
      throw Problem(Problem::kFailed, "the configuration could not be read");
    }
    if (!value.empty()) {
      site.settings[key] =
          value.find('@') == std::string::npos ? NameOf(accounts.users, value) : value;
    }
  }
  return site;
}

Json::Value SiteJson(const Site& site) {
  Json::Value value;
  value["$schema"] = kSiteSchema;
  value["domains"] = Json::Value(Json::arrayValue);
  value["settings"] = Json::Value(Json::objectValue);
  for (const auto& [name, domain] : site.domains) {
    value["domains"].append(DomainJson(name, domain));
  }
  for (const auto& [key, text] : site.settings) {
    value["settings"][key] = text;
  }
  return value;
}

}  // namespace MDOMAIN::DOCUMENT
