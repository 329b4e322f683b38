// A document, as a site.
#include <algorithm>
#include <iterator>
#include <utility>

#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/domain_name.h"
#include "lib-domain/control/pattern_trial.h"
#include "lib-domain/document/place.h"
#include "lib-domain/document/site.h"
#include "lib-domain/document/words.h"
#include "lib-domain/insight/known_domain.h"
#include "lib-domain/utils/domain_utils.h"
#include "lib-domain/utils/domain_utils_internal.h"
#include "platform/include/postfix_map.h"
#include "platform/include/text.h"

namespace MDOMAIN::DOCUMENT {
namespace {

using BASE::AsciiForm;

// A text of an array that stands there once.
void RequireNew(bool is_new, const Place& place) {
  if (!is_new) {
    place.Refuse("stands here twice");
  }
}

std::string CheckedName(const Place& place) {
  std::string name = UTILS::INTERNAL::StorableDomainName(place.Text());
  if (!UTILS::INTERNAL::IsDomainName(name)) {
    place.Refuse("\"" + name + "\" is not a valid domain name");
  }
  return name;
}

class Parser {
 public:
  explicit Parser(const SiteAccounts& accounts) : accounts_(accounts) {
    for (const INSIGHT::KnownDomain& domain : INSIGHT::ListKnownDomains()) {
      spellings_[AsciiForm(domain.name)] = domain.name;
      for (const std::string& name : domain.additional_names) {
        spellings_[AsciiForm(name)] = name;
      }
    }
  }

  TypedSite Parse(const Json::Value& document) {
    const Place root(document, "$");
    root.RequireMembers({"$schema", "domains", "settings"});
    if (root.Member("$schema").Text() != kSiteSchema) {
      root.Member("$schema").Refuse(std::string("must be \"") + kSiteSchema + "\"");
    }
    for (const Place& place : root.Member("domains").Elements()) {
      AddDomain(place);
    }
    NoteForeignRules(root.Member("domains"));
    AddSettings(root.Member("settings"));
    RequirePrimary(root.Member("domains"));
    typed_.unknown = {unknown_.begin(), unknown_.end()};
    return std::move(typed_);
  }

 private:
  // The name that the mirror gives somebody; empty, and noted, where it has nobody.
  std::string Account(const Place& place, bool is_user) {
    const std::string typed = place.Text();
    const SiteAccount* account = (is_user ? accounts_.users : accounts_.groups).Find(typed);
    if (account == nullptr) {
      unknown_.insert((is_user ? "user " : "group ") + typed);
      return "";
    }
    return account->name;
  }

  void AddDomain(const Place& place) {
    place.RequireMembers({"name", "primary", "description", "pattern", "auto_add", "names",
                          "groups", "users", "removed", "entries", "copies", "disclaimers"});
    const Place name = place.Member("name");
    AddName(name, DomainName(name));
    SiteDomain& domain = typed_.site.domains[DomainName(name)];
    domain.is_primary = place.Member("primary").Flag();
    domain.description = place.Member("description").Text();
    domain.adds_users = place.Member("auto_add").Flag();
    const Place pattern = place.Member("pattern");
    domain.pattern = pattern.Text();
    if (!UTILS::IsDomainDefaultAliasPatternValid(domain.pattern)) {
      pattern.Refuse("\"" + domain.pattern +
                     "\" is not an alias pattern: it needs a placeholder such as <a>");
    }
    const std::string useless = CONTROL::INTERNAL::WhyUselessPattern(domain.pattern);
    if (!useless.empty()) {
      pattern.Refuse("\"" + domain.pattern + "\"" + useless);
    }
    for (const Place& more : place.Member("names").Elements()) {
      AddName(more, DomainName(name));
      domain.names.insert(DomainName(more));
    }
    AddMembers(place, domain);
    rule_keys_.clear();
    for (const Place& entry : place.Member("entries").Elements()) {
      AddEntry(entry, domain);
    }
    RequireOwners(place, domain);
    for (const Place& copy : place.Member("copies").Elements()) {
      AddCopy(copy, domain);
    }
    AddDisclaimers(place.Member("disclaimers"), domain);
  }

  // In the spelling in which it is stored already, if it is.
  std::string DomainName(const Place& place) const {
    const std::string name = CheckedName(place);
    const auto known = spellings_.find(AsciiForm(name));
    return known == spellings_.end() ? name : known->second;
  }

  void AddName(const Place& place, const std::string& domain) {
    RequireNew(owners_.emplace(AsciiForm(DomainName(place)), AsciiForm(domain)).second, place);
  }

  void AddMembers(const Place& place, SiteDomain& domain) {
    for (const Place& group : place.Member("groups").Elements()) {
      group.RequireMembers({"name", "role"});
      const std::string role = Role(group, false);
      const std::string name = Account(group.Member("name"), false);
      RequireNew(name.empty() || domain.groups.emplace(name, role).second, group.Member("name"));
    }
    for (const Place& user : place.Member("users").Elements()) {
      AddUser(user, domain);
    }
    for (const Place& user : place.Member("removed").Elements()) {
      const std::string name = Account(user, true);
      if (domain.users.count(name) != 0) {
        user.Refuse("is one of the users");
      }
      RequireNew(name.empty() || domain.removed.insert(name).second, user);
    }
  }

  static std::string Role(const Place& place, bool may_be_of_groups) {
    const Place role = place.Member("role");
    std::string text = role.Text();
    if (!UTILS::CheckRoleValid(text) && !(may_be_of_groups && text == kRoleOfGroups)) {
      role.Refuse(std::string("must be normal, domain_admin") +
                  (may_be_of_groups ? " or group" : ""));
    }
    return text;
  }

  void AddUser(const Place& place, SiteDomain& domain) {
    place.RequireMembers({"name", "role", "aliases", "taken"});
    SiteUser user;
    user.role = place.Has("role") ? Role(place, true) : "";
    std::set<std::string> own;
    place.Member("aliases");
    for (const char* member : {"aliases", "taken"}) {
      for (const Place& alias : place.Elements(member)) {
        const std::string text = alias.Text();
        if (!UTILS::IsAccountAliasValid(text)) {
          alias.Refuse("\"" + text + "\" is no local part of a mail address");
        }
        RequireNew(own.insert(korvmailserver::ToLowerAscii(text)).second, alias);
        (member == std::string("aliases") ? user.aliases : user.taken).push_back(text);
      }
    }
    std::sort(user.aliases.begin(), user.aliases.end());
    std::sort(user.taken.begin(), user.taken.end());
    if (own.empty()) {
      place.Member("aliases").Refuse("a user of a domain has one alias at least");
    }
    const std::string name = Account(place.Member("name"), true);
    RequireNew(name.empty() || domain.users.emplace(name, user).second, place.Member("name"));
  }

  // An alias is one user's, whoever else has it too, letter case of ASCII aside; an entry's name is
  // nobody's, letter case of all scripts aside.
  static void RequireOwners(const Place& place, const SiteDomain& domain) {
    std::set<std::string> entries;
    for (const auto& entry : domain.entries) {
      entries.insert(korvmailserver::FoldMapKey(entry.first));
    }
    std::map<std::string, std::string> owners;
    for (const auto& [name, user] : domain.users) {
      for (const std::string& alias : user.aliases) {
        const bool is_entry = entries.count(korvmailserver::FoldMapKey(alias)) != 0;
        const auto [owner, is_new] = owners.emplace(korvmailserver::ToLowerAscii(alias), name);
        if (is_entry || !is_new) {
          std::string text = "\"" + alias;
          text.append("\" of ").append(name).append(" is that of ");
          text.append(is_entry ? "an entry" : owner->second);
          place.Member("users").Refuse(text + " as well: one of them has it \"taken\"");
        }
      }
    }
  }

  void AddEntry(const Place& place, SiteDomain& domain) {
    place.RequireMembers({"name", "users", "groups", "addresses"});
    const Place name = place.Member("name");
    if (!UTILS::IsAccountAliasValid(name.Text())) {
      name.Refuse("\"" + name.Text() + "\" is no local part of a mail address");
    }
    RequireNew(rule_keys_.insert("entry " + korvmailserver::FoldMapKey(name.Text())).second, name);
    SiteEntry entry;
    std::set<std::string> members;
    bool lacks_members = false;
    for (const char* member : {"users", "groups"}) {
      const bool are_users = member == std::string("users");
      for (const Place& account : place.Elements(member)) {
        const std::string text = Account(account, are_users);
        lacks_members = lacks_members || text.empty();
        AddMember(text, account, member, members, are_users ? entry.users : entry.groups);
      }
    }
    for (const Place& address : place.Elements("addresses")) {
      AddMember(address.Text(), address, "addresses", members, entry.addresses);
    }
    if (lacks_members && entry == SiteEntry()) {
      unknown_.insert("entry " + name.Text() + " without its members");
    } else {
      domain.entries.emplace(name.Text(), entry);
    }
  }

  static void AddMember(const std::string& text, const Place& place, const std::string& kind,
                        std::set<std::string>& known, std::vector<std::string>& members) {
    if (!text.empty()) {
      RequireNew(known.insert(kind + " " + text).second, place);
      members.push_back(text);
    }
  }

  // As an export has it: an account without its directory's part.
  std::string RuleName(const Place& place) const {
    const std::string text = place.Text();
    const SiteAccount* account =
        text.find('@') == std::string::npos ? accounts_.users.Find(text) : nullptr;
    return account == nullptr ? text : account->name;
  }

  // What two names of rules for the same have in common.
  static std::string RuleKey(int type, const std::string& name) {
    const size_t at = name.rfind('@');
    if (type == BCC_DOMAIN || at == std::string::npos) {
      return type == BCC_DOMAIN ? AsciiForm(name) : name;
    }
    return korvmailserver::ToLowerAscii(name.substr(0, at + 1)) + AsciiForm(name.substr(at + 1));
  }

  void AddCopy(const Place& place, SiteDomain& domain) {
    place.RequireMembers({"type", "name", "to"});
    const std::string word = place.Member("type").Text();
    const auto* type = std::find_if(std::begin(kCopyTypes), std::end(kCopyTypes),
                                    [&](const CopyType& known) { return word == known.word; });
    if (type == std::end(kCopyTypes)) {
      place.Member("type").Refuse("must be recipient, sender or domain");
    }
    const BccInfo rule = {RuleName(place.Member("name")), type->type, RuleName(place.Member("to"))};
    const std::string problem = BCC::CheckRule(rule);
    if (!problem.empty()) {
      place.Refuse(problem);
    }
    RequireNew(rule_keys_.insert(word + " " + RuleKey(rule.type, rule.name)).second,
               place.Member("name"));
    domain.copies.emplace(std::pair(rule.type, rule.name), rule.bcc_to);
  }

  // A rule should go with the domain of its address. One that is older than that domain does not.
  void NoteForeignRules(const Place& place) {
    for (const Place& domain : place.Elements()) {
      const std::string own = AsciiForm(DomainName(domain.Member("name")));
      for (const Place& copy : domain.Member("copies").Elements()) {
        const std::string name = copy.Member("name").Text();
        const bool is_account =
            name.find('@') == std::string::npos && copy.Member("type").Text() != "domain";
        const auto of =
            is_account ? owners_.end() : owners_.find(AsciiForm(name.substr(name.rfind('@') + 1)));
        if (of != owners_.end() && of->second != own) {
          std::string doubt = copy.Member("name").path();
          doubt.append(": \"").append(name).append("\" belongs to another domain");
          typed_.doubts.push_back(std::move(doubt));
        }
      }
    }
  }

  void AddDisclaimers(const Place& place, SiteDomain& domain) {
    domain.disclaimers = Json::Value(Json::arrayValue);
    for (const Place& disclaimer : place.Elements()) {
      domain.disclaimers.append(Disclaimer(disclaimer));
    }
    std::string error;
    if (!MimeDefang::CheckDisclaimerList(DisclaimersWithIds(domain.disclaimers, accounts_),
                                         error)) {
      throw Problem(Problem::kRefused, place.path() + error);
    }
  }

  // With all its members, as it is stored. One that lacks an account of its rules is switched off:
  // it would be for other mail than it was meant for.
  Json::Value Disclaimer(const Place& place) {
    Json::Value disclaimer = place.value();
    if (!disclaimer.isObject()) {
      return disclaimer;
    }
    for (const char* member : {"match_rule_list", "exception_rule_list"}) {
      if (!disclaimer.isMember(member)) {
        continue;
      }
      Json::Value kept(Json::arrayValue);
      for (const Place& rule : place.Elements(member)) {
        Json::Value known = Rule(rule);
        if (known.isNull()) {
          disclaimer["enabled"] = false;
          const Json::Value name = disclaimer["name"];  // may be no text: the list is checked later
          unknown_.insert("the rule for them of disclaimer " +
                          (name.isString() ? name.asString() : "") + ", which is switched off");
        } else {
          kept.append(known);
        }
      }
      disclaimer[member] = kept;
    }
    for (const char* member : {"content_html", "content_txt"}) {
      if (!disclaimer.isMember(member)) {
        disclaimer[member] = "";
      }
    }
    return disclaimer;
  }

  // With the name that the mirror has; null where it has none.
  Json::Value Rule(const Place& place) {
    Json::Value rule = place.value();
    const bool is_user = rule.isObject() && rule["pattern_type"] == Json::Value("user");
    if (is_user || (rule.isObject() && rule["pattern_type"] == Json::Value("group"))) {
      rule["pattern"] = Account(place.Member("pattern"), is_user);
      return rule["pattern"] == Json::Value("") ? Json::Value() : rule;
    }
    return rule;
  }

  void AddSettings(const Place& place) {
    place.RequireMembers({std::begin(kSiteSettings), std::end(kSiteSettings)});
    for (const std::string& key : place.value().getMemberNames()) {
      const std::string value = RuleName(place.Member(key));
      if (!value.empty()) {
        typed_.site.settings[key] = value;
      }
    }
  }

  void RequirePrimary(const Place& place) const {
    const auto& domains = typed_.site.domains;
    if (domains.empty() && !spellings_.empty()) {
      place.Refuse("has none, and the primary domain cannot be deleted");
    }
    const auto primaries = std::count_if(domains.begin(), domains.end(),
                                         [](const auto& known) { return known.second.is_primary; });
    if (primaries != (domains.empty() ? 0 : 1)) {
      place.Refuse("one of them must be primary, not " + std::to_string(primaries));
    }
  }

  const SiteAccounts& accounts_;
  TypedSite typed_;
  std::map<std::string, std::string> spellings_;
  std::map<std::string, std::string> owners_;  // domain by any of its names, both in ASCII
  std::set<std::string> unknown_;
  std::set<std::string> rule_keys_;  // of the domain's entries and copies so far
};

}  // namespace

void ForEachAccountRule(Json::Value& disclaimers, const std::function<bool(Json::Value&)>& keep) {
  for (Json::Value& disclaimer : disclaimers) {
    for (const char* member : {"match_rule_list", "exception_rule_list"}) {
      if (!disclaimer.isObject() || !disclaimer.isMember(member) || !disclaimer[member].isArray()) {
        continue;
      }
      Json::Value kept(Json::arrayValue);
      for (Json::Value& rule : disclaimer[member]) {
        if (!rule.isObject() || keep(rule)) {
          kept.append(rule);
        }
      }
      disclaimer[member] = kept;
    }
  }
}

Json::Value DisclaimersWithIds(Json::Value disclaimers, const SiteAccounts& accounts) {
  ForEachAccountRule(disclaimers, [&](Json::Value& rule) {
    const bool is_user = rule["pattern_type"] == Json::Value("user");
    if (is_user || rule["pattern_type"] == Json::Value("group")) {
      const SiteAccountList& list = is_user ? accounts.users : accounts.groups;
      rule["pattern"] = std::to_string(list.Id(rule["pattern"].asString()));
      rule["pattern_type"] = is_user ? "uid" : "gid";
    }
    return true;
  });
  return disclaimers;
}

TypedSite ParseSite(const std::string& text, const SiteAccounts& accounts) {
  Json::Value document;
  ParseDocument(text, document);
  return Parser(accounts).Parse(document);
}

}  // namespace MDOMAIN::DOCUMENT
