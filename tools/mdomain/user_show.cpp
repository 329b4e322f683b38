// mdomain user show: everything about one account.
#include <algorithm>
#include <iterator>
#include <unordered_set>

#include "lib-domain/api/domain_user.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/look_up.h"
#include "lib-domain/db/user.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/alias_owner.h"
#include "tools/mdomain/bcc_rule_name.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/stored_copies.h"
#include "tools/mdomain/text.h"
#include "tools/mdomain/user_output.h"

namespace mdomain {
namespace {

using MDOMAIN::BASE::EqualsIgnoreCase;
using MDOMAIN::RECORD::DomainUser;
using MDOMAIN::RECORD::User;

// The mirrored groups of these ids; none for an empty list.
Json::Value GroupsJson(const std::vector<unsigned int>& gids) {
  if (gids.empty()) {
    return Json::Value(Json::arrayValue);
  }
  MDOMAIN::DB::GroupDBFilter filter;
  filter.SetGIDs(gids);
  return AccountsJson(ListGroups(filter));
}

Json::Value GroupsOf(unsigned int uid) {
  std::vector<unsigned int> gids;
  if (!MDOMAIN::DB::User().FindBelongingGroups(uid, gids)) {
    throw Failure(kFailed, "the groups of the user could not be read");
  }
  return GroupsJson(gids);
}

Json::Value AliasesJson(const DomainUser& user, const AliasOwners& owners) {
  Json::Value aliases(Json::arrayValue);
  for (const auto& [alias, is_flagged] : user.GetAliasDuplicatedPairs()) {
    Json::Value record = AliasJson(alias, is_flagged);
    const AliasOwner* owner = is_flagged ? owners.Find(user.GetDomainIdx(), alias) : nullptr;
    record["owner"] = owner == nullptr ? user.GetUserName() : owner->name;
    record["entry"] = owner != nullptr && owner->is_entry;
    aliases.append(record);
  }
  return aliases;
}

// What the user is in one domain; null for nothing.
Json::Value InDomain(const KnownDomain& domain, const User& user,
                     const std::vector<DomainUser>& with_aliases) {
  std::vector<DomainUser> found;
  if (!MDOMAIN::DB::INTERNAL::AddDomainUser(domain.idx, user.GetUID(), found)) {
    throw Failure(kFailed, "the users of the domain could not be read");
  }
  const bool has_role = !found.empty();
  if (!has_role) {
    std::copy_if(with_aliases.begin(), with_aliases.end(), std::back_inserter(found),
                 [&](const DomainUser& one) { return one.GetDomainIdx() == domain.idx; });
  }
  if (found.empty()) {
    return Json::Value();
  }
  std::vector<unsigned int> gids;
  if (!MDOMAIN::DB::DomainUser().FindBeingEffectedGroups(domain.idx, user.GetUID(), gids)) {
    throw Failure(kFailed, "the groups of the domain could not be read");
  }
  AliasOwners owners;
  owners.Read(domain.idx, FlaggedAliases(found.front()));
  Json::Value record = DomainNameJson(domain);
  record["role"] = has_role ? found.front().GetRole() : "";
  record["own_role"] = has_role && !found.front().IsUnderGroupControl();
  record["groups"] = GroupsJson(gids);
  record["aliases"] = AliasesJson(found.front(), owners);
  return record;
}

bool WasTakenOut(const KnownDomain& domain, unsigned int uid) {
  std::unordered_set<unsigned int> removed;
  if (!MDOMAIN::API::DomainUser().GetAllRemovedUIDs(domain.idx, removed)) {
    throw Failure(kFailed, "the removed users could not be read");
  }
  return removed.count(uid) != 0;
}

Json::Value AddressesJson(const Domains& domains, const User& user) {
  std::vector<std::string> addresses;
  if (!MDOMAIN::API::DomainUser().GetMailAddrIncludingAdditionalDomain(user.GetUserName(),
                                                                       addresses)) {
    throw Failure(kFailed, "the addresses of the user could not be read");
  }
  const AddressOwners owners(domains, user.GetUID());
  Json::Value records(Json::arrayValue);
  for (const std::string& address : addresses) {
    const AliasOwner* other = owners.FindOther(user.GetUserName(), address);
    Json::Value record;
    record["address"] = address;
    record["owner"] = other == nullptr ? user.GetUserName() : other->name;
    record["entry"] = other != nullptr && other->is_entry;
    records.append(record);
  }
  return records;
}

// Whether a name or destination of a rule in the domain means the user: the account, an alias of
// that domain, or an address that is the user's own.
bool IsNamed(const Json::Value& user, int domain_idx, const std::string& text) {
  if (text.find('@') != std::string::npos) {
    return std::any_of(user["addresses"].begin(), user["addresses"].end(), [&](const auto& one) {
      return one["owner"] == user["name"] &&
             SameRuleName(BCC_RECIPIENT, one["address"].asString(), text);
    });
  }
  for (const Json::Value& domain : user["domains"]) {
    for (const Json::Value& alias : domain["aliases"]) {
      if (domain["id"] == domain_idx && !alias["duplicated"].asBool() &&
          EqualsIgnoreCase(alias["alias"].asString(), text)) {
        return true;
      }
    }
  }
  return SameRuleName(BCC_RECIPIENT, user["name"].asString(), text);
}

Json::Value CopiesJson(const Domains& domains, const Json::Value& user) {
  Json::Value copies(Json::arrayValue);
  for (const KnownDomain& domain : domains.all()) {
    ForEachCopy(domain.idx, [&](const BccInfo& rule) {
      const bool is_name = rule.type != BCC_DOMAIN && IsNamed(user, domain.idx, rule.name);
      if (is_name || IsNamed(user, domain.idx, rule.bcc_to)) {
        Json::Value record = CopyJson(rule);
        record["domain"] = DomainNameJson(domain);
        copies.append(record);
      }
    });
  }
  return copies;
}

// "normal (own)", "domain_admin (by books, sales)", "none"
std::string WriteRole(const Json::Value& domain) {
  if (domain["role"].asString().empty()) {
    return "none: its aliases get no mail";
  }
  return domain["role"].asString() +
         (domain["own_role"].asBool() ? " (own)" : " (by " + WriteNames(domain["groups"]) + ")");
}

std::string WriteOwner(const Json::Value& record) {
  const std::string owner = record["owner"].asString();
  return record["entry"].asBool() ? "an address with several members"
         : owner.empty()          ? "nobody"
                                  : owner;
}

std::string WriteAliases(const Json::Value& aliases) {
  std::string text;
  for (const Json::Value& alias : aliases) {
    text += (text.empty() ? "" : ", ") + alias["alias"].asString() +
            (alias["duplicated"].asBool() ? " (collides, goes to " + WriteOwner(alias) + ")" : "");
  }
  return text;
}

// Lines of title and text, as deep as the answer is.
void Print(Output& out, const Json::Value& user) {
  const std::vector<Column> account = {{"name", "ACCOUNT"},
                                       {"uid", "UID"},
                                       {"groups", "GROUPS", WriteNames},
                                       {"removed_from", "TAKEN OUT OF", WriteNames}};
  out.Record(user, account);
  for (const Json::Value& domain : user["domains"]) {
    Json::Value lines;
    lines["name"] = domain["name"].asString() + " (" + domain["id"].asString() + ")";
    lines["role"] = WriteRole(domain);
    lines["aliases"] = domain["aliases"];
    out.Texts({""});
    out.Record(lines, {{"name", "DOMAIN"}, {"role", "ROLE"}, {"aliases", "ALIASES", WriteAliases}});
  }
  std::vector<std::string> lines = {"", "ADDRESSES"};
  for (const Json::Value& address : user["addresses"]) {
    const bool is_own = address["owner"] == user["name"];
    lines.push_back("  " + address["address"].asString() +
                    (is_own ? "" : " (goes to " + WriteOwner(address) + ")"));
  }
  if (user["addresses"].empty()) {
    lines.emplace_back("  none");
  }
  lines.insert(lines.end(), {"", "BLIND COPIES"});
  for (const Json::Value& copy : user["copies"]) {
    lines.push_back("  " + copy["domain"]["name"].asString() + ": " + copy["type"].asString() +
                    " " + copy["name"].asString() + " to " + copy["bcc_to"].asString());
  }
  if (user["copies"].empty()) {
    lines.emplace_back("  none");
  }
  out.Texts(lines);
}

void Show(Call& call) {
  const User user = FindUser(call.Text("USER"));
  const Domains domains;
  const std::vector<DomainUser> with_aliases = DomainsOfUser(user.GetUID());
  Json::Value record = AccountJson(user);
  record["groups"] = GroupsOf(user.GetUID());
  record["domains"] = Json::Value(Json::arrayValue);
  record["removed_from"] = Json::Value(Json::arrayValue);
  for (const KnownDomain& domain : domains.all()) {
    const Json::Value in_domain = InDomain(domain, user, with_aliases);
    if (!in_domain.isNull()) {
      record["domains"].append(in_domain);
    }
    if (WasTakenOut(domain, user.GetUID())) {
      record["removed_from"].append(DomainNameJson(domain));
    }
  }
  record["addresses"] = AddressesJson(domains, user);
  record["copies"] = CopiesJson(domains, record);
  if (call.out().json()) {
    call.out().Record(record, {});
  } else {
    Print(call.out(), record);
  }
}

const Register kShow({
    "user",
    "",
    {{"show",
      "Show everything about one account",
      "Its groups; in each domain the role, whether it is the account's own or which groups give "
      "it, and the aliases, of colliding ones who gets the mail; all addresses; out of which "
      "domains it was taken by name; the rules of blind copies that name the account or one of its "
      "own addresses, as what is copied or as destination.",
      Effect::kReads,
      {One("USER", "Name or uid of the user")},
      Show}},
});

}  // namespace
}  // namespace mdomain
