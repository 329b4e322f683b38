// mdomain user show: everything about one account.
#include "lib-domain/insight/person.h"
#include "tools/mdomain/account_output.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/copy_output.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/text.h"
#include "tools/mdomain/user_output.h"

namespace mdomain {
namespace {

using MDOMAIN::RECORD::User;

Json::Value GroupsJson(const std::vector<Account>& groups) {
  Json::Value records(Json::arrayValue);
  for (const Account& group : groups) {
    records.append(AccountJson(MDOMAIN::RECORD::Group(group.id, group.name, "")));
  }
  return records;
}

Json::Value AliasesJson(const std::vector<PersonAlias>& aliases) {
  Json::Value records(Json::arrayValue);
  for (const PersonAlias& alias : aliases) {
    Json::Value record = AliasJson(alias.local_part, alias.is_taken);
    record["owner"] = alias.owner;
    record["entry"] = alias.is_entry;
    record["others"] = JsonTexts(alias.others);
    record["why"] = alias.why;
    records.append(record);
  }
  return records;
}

Json::Value DomainsJson(const std::vector<PersonDomain>& domains) {
  Json::Value records(Json::arrayValue);
  for (const PersonDomain& domain : domains) {
    Json::Value record = DomainNameJson(domain.domain.idx, domain.domain.name);
    record["role"] = MDOMAIN::INSIGHT::TextOf(domain.role);
    record["own_role"] = domain.has_own_role;
    record["groups"] = GroupsJson(domain.groups);
    record["aliases"] = AliasesJson(domain.aliases);
    records.append(record);
  }
  return records;
}

Json::Value PersonJson(const Person& person) {
  Json::Value record = AccountJson(person.uid, person.name);
  record["groups"] = GroupsJson(person.groups);
  record["domains"] = DomainsJson(person.domains);
  record["removed_from"] = Json::Value(Json::arrayValue);
  for (const DomainName& domain : person.taken_out_of) {
    record["removed_from"].append(DomainNameJson(domain.idx, domain.name));
  }
  record["addresses"] = Json::Value(Json::arrayValue);
  for (const PersonAddress& address : person.addresses) {
    Json::Value one;
    one["address"] = address.address;
    one["owner"] = address.owner;
    one["entry"] = address.is_entry;
    record["addresses"].append(one);
  }
  record["copies"] = Json::Value(Json::arrayValue);
  for (const PersonCopy& copy : person.copies) {
    Json::Value one = CopyJson(copy.copy);
    one["domain"] = DomainNameJson(copy.domain.idx, copy.domain.name);
    record["copies"].append(one);
  }
  return record;
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
  const Json::Value record = PersonJson(MDOMAIN::INSIGHT::DescribePerson(user, Domains().all()));
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
