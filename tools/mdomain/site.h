// The whole model in the form in which it leaves one machine and enters another: domains by name,
// accounts and groups by short names, no index, uid or gid. mdomain export and apply.
//
// What belongs to one machine alone is not in it: DKIM keys, the account source, the host's
// settings. docs/export.schema.json describes the document.
#ifndef TOOLS_MDOMAIN_SITE_H
#define TOOLS_MDOMAIN_SITE_H

#include <json/value.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/mdomain/site_accounts.h"

namespace mdomain {

struct SiteUser {
  // "normal" or "domain_admin" where it was given by hand, "group" where the user's groups give
  // one; empty: normal as everybody gets it who is added, until a group of the domain gives one.
  std::string role;
  std::vector<std::string> aliases;  // whose mail the user gets, ascending
  std::vector<std::string> taken;    // which the user has as well, and somebody else owns

  bool operator==(const SiteUser& other) const {
    return role == other.role && aliases == other.aliases && taken == other.taken;
  }
};

// An address with several members.
struct SiteEntry {
  std::vector<std::string> users;
  std::vector<std::string> groups;
  std::vector<std::string> addresses;

  bool operator==(const SiteEntry& other) const {
    return users == other.users && groups == other.groups && addresses == other.addresses;
  }
};

struct SiteDomain {
  std::string description;
  std::string pattern;
  bool adds_users = false;
  bool is_primary = false;
  std::set<std::string> names;                // the additional ones
  std::map<std::string, std::string> groups;  // role by name
  std::map<std::string, SiteUser> users;
  std::set<std::string> removed;  // members of the groups who were taken out by name
  std::map<std::string, SiteEntry> entries;
  std::map<std::pair<int, std::string>, std::string> copies;  // destination by type and name
  // In stored order, as API::MimeDefang has them, but for rules about accounts: their pattern type
  // is "user" or "group", their pattern a name.
  Json::Value disclaimers = Json::Value(Json::arrayValue);
};

struct Site {
  std::map<std::string, SiteDomain> domains;
  std::map<std::string, std::string> settings;
};

// What is stored now. Throws a Failure where it cannot be read.
Site ReadSite(const SiteAccounts& accounts);
SiteDomain ReadSiteDomain(int domain_idx, const std::string& name, const SiteAccounts& accounts);

// The document, in an order that follows from the model alone.
Json::Value SiteJson(const Site& site);

struct TypedSite {
  Site site;
  std::vector<std::string> unknown;  // "user erika", "group sales", each once: left out of `site`
};
// What the text of a document says, accounts by the names that the mirror gives them. Refuses, with
// the JSON path, what is no such document and what no model can be.
TypedSite ParseSite(const std::string& text, const SiteAccounts& accounts);

// A list of disclaimers with ids in the place of names; the names must be known.
Json::Value DisclaimersWithIds(Json::Value disclaimers, const SiteAccounts& accounts);

// "$.domains[0].users[3].role: ..." for the first place where `is` is not `wanted`; empty without.
std::string FirstDifference(const Json::Value& is, const Json::Value& wanted,
                            const std::string& path = "$");

// Makes it so, step by step, and compares what is stored afterwards. Throws a Failure at the first
// step that fails: what was done before stays.
void MakeSite(const Site& wanted, const SiteAccounts& accounts);
// Of one domain: groups, users, roles, aliases, who was removed; then entries, copies, disclaimers.
void MakeSiteDomain(int domain_idx, const std::string& name, const SiteDomain& wanted,
                    const SiteAccounts& accounts);
void MakeSiteEntries(int domain_idx, const std::string& name,
                     const std::map<std::string, SiteEntry>& is,
                     const std::map<std::string, SiteEntry>& wanted, const SiteAccounts& accounts);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SITE_H
