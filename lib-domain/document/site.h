// The whole model in the form in which it leaves one machine and enters another: domains by name,
// accounts and groups by short names, no index, uid or gid. mdomain export and apply.
//
// What belongs to one machine alone is not in it: DKIM keys, the account source, the host's
// settings. docs/export.schema.json describes the document.
#ifndef LIB_DOMAIN_DOCUMENT_SITE_H
#define LIB_DOMAIN_DOCUMENT_SITE_H

#include <json/value.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/document/accounts.h"
#include "lib-domain/document/problem.h"
#include "lib-domain/record/domain.h"
#include "lib-domain/record/domain_user.h"
#include "lib-domain/record/domain_user_alias.h"
#include "platform/include/alias.h"
#include "platform/include/export.h"

namespace MDOMAIN::DOCUMENT {

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

// What is stored now, piece by piece; what concerns all domains is read once per object, so make a
// new one after a change. Everything throws a Problem where it cannot be read.
class SiteReader {
 public:
  explicit SiteReader(const SiteAccounts& accounts) : accounts_(accounts) {}
  // Groups, users, members who were removed.
  void ReadMembers(int domain_idx, const std::string& name, SiteDomain& domain);
  void ReadEntries(int domain_idx, SiteDomain& domain);
  // Copies and disclaimers.
  void ReadPolicies(int domain_idx, const std::string& name, SiteDomain& domain) const;

 private:
  void ReadUsers(int domain_idx, const std::string& name, SiteDomain& domain);
  bool IsAdded(int domain_idx, unsigned int uid);

  const SiteAccounts& accounts_;
  bool has_added_ = false;
  std::set<std::pair<int, unsigned int>> added_;  // domain, uid: who was added automatically
  bool has_entries_ = false;
  std::multimap<int, Alias::Entry> entries_;
};
// The records of all domains; counts their users.
std::vector<RECORD::Domain> ListDomainRecords();
// All of it, of one moment.
MDOMAIN_EXPORT Site ReadSite(const SiteAccounts& accounts);

// The document, in an order that follows from the model alone.
MDOMAIN_EXPORT Json::Value SiteJson(const Site& site);

struct TypedSite {
  Site site;
  std::vector<std::string> unknown;  // "user erika", "group sales", each once: left out of `site`
  std::vector<std::string> doubts;   // what may stand, and is hardly meant so, with its path
};
// What the text of a document says, accounts by the names that the mirror gives them. Refuses, with
// the JSON path, what is no such document, what no model can be, and one without domains where
// there are some.
MDOMAIN_EXPORT TypedSite ParseSite(const std::string& text, const SiteAccounts& accounts);

// A list of disclaimers with ids in the place of names; the names must be known.
Json::Value DisclaimersWithIds(Json::Value disclaimers, const SiteAccounts& accounts);

// "$.domains[example.com].users[anna].role: ..." for the first place where `is` is not `wanted`,
// which have what has a name in one order; empty without.
std::string FirstDifference(const Json::Value& is, const Json::Value& wanted,
                            const std::string& path = "$");

// Makes it so, step by step, and compares what is stored afterwards; what is so already is only
// read. Throws a Problem at the first step that fails: what was done before stays. Sentences about
// what mail cannot reach are added to `warnings`.
MDOMAIN_EXPORT void MakeSite(const Site& wanted, const SiteAccounts& accounts,
                             std::vector<std::string>& warnings);

// The members of one domain on their way to what a site says.
class SiteMembers {
 public:
  SiteMembers(int domain_idx, const std::string& name, const SiteDomain& is,
              const SiteDomain& wanted, const SiteAccounts& accounts);
  // Groups, users, roles, the aliases that users own, and who was removed. No user has the name of
  // an entry afterwards that is not made yet.
  void Make();
  // Once all entries are made: aliases that somebody else owns.
  void AddTakenAliases();

 private:
  void TakeOut();
  void TakeInGroups();
  void GiveUpAliases();
  void TakeInUsers();
  void SetRolesOfGroups();
  void SetUsers();
  void Remove();
  void FindMoving();
  bool IsNew(const std::string& user) const { return is_.users.count(user) == 0; }
  void Require(bool is_done, const std::string& what) const;
  void AddAliases(const std::string& name, const std::vector<std::string>& texts,
                  std::vector<RECORD::DomainUserAlias>& aliases) const;
  void Add(const std::vector<std::string>& users, const std::vector<std::string>& groups,
           std::vector<RECORD::DomainUserAlias>& aliases) const;
  RECORD::DomainUser Record(const std::string& name, std::vector<std::string> texts) const;
  void Set(std::vector<RECORD::DomainUser>& users) const;

  int idx_;
  const std::string& name_;
  SiteDomain is_;
  const SiteDomain& wanted_;
  const SiteAccounts& accounts_;
  std::set<std::string> changed_;  // users who are not yet as they should be, and
  std::set<std::string> moving_;   // those who may lose an alias to one of these on the way
};

}  // namespace MDOMAIN::DOCUMENT

#endif  // LIB_DOMAIN_DOCUMENT_SITE_H
