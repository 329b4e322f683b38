// mdomain bcc: blind-copy rules, their files and the maps that the mail transfer agent reads.
#include <algorithm>
#include <iostream>
#include <iterator>
#include <list>

#include "lib-domain/api/bcc.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/insight/rule_name.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/bcc_maps.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/copy_output.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::INSIGHT::DomainPart;
using MDOMAIN::INSIGHT::SameRuleName;

struct RuleType {
  int type;
  const char* name;
};

constexpr RuleType kTypes[] = {
    {BCC_RECIPIENT, "recipient"}, {BCC_SENDER, "sender"}, {BCC_DOMAIN, "domain"}};

// The type that --type names, or `fallback`.
int TypeOf(const Call& call, int fallback) {
  if (!call.Has("--type")) {
    return fallback;
  }
  for (const auto& [type, name] : kTypes) {
    if (name == call.Text("--type")) {
      return type;
    }
  }
  throw Failure(kUsage,
                "--type: \"" + call.Text("--type") + "\" is not recipient, sender or domain");
}

BCC& Rules(int domain_id) {
  BCC* bcc = BCC::getInstance(domain_id);
  if (bcc == nullptr) {
    throw Failure(kFailed, "the rules could not be opened");
  }
  return *bcc;
}

void ForEachRule(int domain_id, int type, const Call& call, const BCC::RuleVisitor& visit) {
  const std::string column = call.Text("--sort") == "destination" ? "bcc_to" : "name";
  if (Rules(domain_id).ForEachRule(type, domain_id, call.Int("--offset", 0),
                                   call.Int("--limit", -1), column,
                                   call.Has("--desc") ? "desc" : "asc", visit) != 0) {
    throw Failure(kFailed, "the rules could not be read");
  }
}

std::list<BccInfo> Read(int domain_id, int type, const Call& call) {
  std::list<BccInfo> rules;
  ForEachRule(domain_id, type, call,
              [&rules](BccInfo&& rule) { rules.push_back(std::move(rule)); });
  return rules;
}

}  // namespace

void PublishBccRules(BCC& bcc) {
  if (bcc.PublishRules() != 0) {
    throw Failure(kFailed, "the rules were changed but could not be published");
  }
  bool are_old = false;
  if (!MDOMAIN::CONTROL::INTERNAL::AreBccMapsOld(are_old) ||
      (are_old && !MDOMAIN::CONTROL::INTERNAL::MakeBccMaps())) {
    throw Failure(kFailed, "the rules were changed, but their maps could not be made");
  }
}

namespace {

// Says on standard error, and in "warnings" of the record, which rules can copy to nobody.
void WarnOfDestinations(int domain_id, const std::list<BccInfo>& rules, Json::Value& record) {
  std::vector<std::string> warnings;
  if (BCC::CheckDestinations(domain_id, rules, warnings) != 0) {
    warnings.emplace_back("whether somebody has the destinations could not be told");
  }
  for (const std::string& warning : warnings) {
    Note(warning);
    record["warnings"].append(warning);
  }
}

bool IsNameOf(const KnownDomain& domain, const std::string& name) {
  return SameDomainName(domain.name, name) ||
         std::any_of(domain.additional_names.begin(), domain.additional_names.end(),
                     [&](const std::string& own) { return SameDomainName(own, name); });
}

// A rule belongs to the domain of its address, so that it is deleted with that domain.
void RequireOwnName(const Domains& domains, const KnownDomain& domain, const BccInfo& rule) {
  const bool is_address = rule.name.find('@') != std::string::npos;
  if (IsNameOf(domain, DomainPart(rule.name)) || (rule.type != BCC_DOMAIN && !is_address)) {
    return;
  }
  if (rule.type == BCC_DOMAIN) {
    throw Failure(kRefused, "\"" + rule.name + "\" is no name of domain " + domain.Title());
  }
  for (const KnownDomain& other : domains.all()) {
    if (IsNameOf(other, DomainPart(rule.name))) {
      throw Failure(kRefused, "\"" + rule.name + "\" is an address of domain " + other.Title());
    }
  }
}

void List(Call& call) {
  const int domain_id = TypedDomain(call).idx;
  const int wanted = TypeOf(call, -1);
  const std::string sort = call.Text("--sort");
  if (!sort.empty() && sort != "name" && sort != "destination") {
    throw Failure(kUsage, "--sort: \"" + sort + "\" is not name or destination");
  }
  if (wanted < 0 && (call.Has("--limit") || call.Has("--offset"))) {
    throw Failure(kUsage, "--limit and --offset want a --type");
  }
  Listing listing(call.out(), {{"name", "NAME"}, {"type", "TYPE"}, {"bcc_to", "BCC TO"}});
  for (const RuleType& kind : kTypes) {
    if (wanted < 0 || wanted == kind.type) {
      ForEachRule(domain_id, kind.type, call,
                  [&listing](const BccInfo& rule) { listing.Add(CopyJson(rule)); });
    }
  }
  listing.End();
}

void Add(Call& call) {
  RequireSettledSettings();
  const Domains domains;
  const KnownDomain& domain = domains.Find(call.Text("DOMAIN"));
  const BccInfo rule = {call.Text("NAME"), TypeOf(call, BCC_RECIPIENT), call.Text("DESTINATION")};
  const std::string problem = BCC::CheckRule(rule);
  if (!problem.empty()) {
    throw Failure(kRefused, problem);
  }
  RequireOwnName(domains, domain, rule);
  std::list<BccInfo> replaced;
  for (const BccInfo& known : Read(domain.idx, rule.type, call)) {
    if (!SameRuleName(rule.type, known.name, rule.name)) {
      continue;
    }
    if (!call.Has("--replace")) {
      throw Failure(kRefused, "\"" + known.name + "\" is copied to \"" + known.bcc_to +
                                  "\" already; --replace changes that");
    }
    replaced.push_back(known);
  }
  BCC& bcc = Rules(domain.idx);
  if (bcc.setBCC(domain.idx, {rule}) != 0) {
    throw Failure(kFailed, "the rule could not be stored");
  }
  replaced.remove_if([&](const BccInfo& known) { return known.name == rule.name; });
  if (!replaced.empty() && bcc.deleteBCC(domain.idx, replaced) != 0) {
    throw Failure(kFailed, "the rule in another spelling could not be removed");
  }
  PublishBccRules(bcc);
  Json::Value record = CopyJson(rule);
  WarnOfDestinations(domain.idx, {rule}, record);
  call.out().Done(record, rule.name + " is copied to " + rule.bcc_to +
                              " once the maps are made anew (mdomain bcc maps)");
}

// The rules of the type that the typed names mean.
std::list<BccInfo> Find(const KnownDomain& domain, int type, const Call& call) {
  const std::list<BccInfo> known = Read(domain.idx, type, call);
  std::list<BccInfo> found;
  for (const std::string& name : call.List("NAME")) {
    const size_t before = found.size();
    // Of accounts that differ in case alone, the one that was typed.
    const bool exact =
        name.find('@') == std::string::npos &&
        std::any_of(known.begin(), known.end(), [&](const BccInfo& r) { return r.name == name; });
    std::copy_if(known.begin(), known.end(), std::back_inserter(found), [&](const BccInfo& rule) {
      return exact ? rule.name == name : SameRuleName(type, rule.name, name);
    });
    if (found.size() == before) {
      throw Failure(kNotFound, "domain " + domain.Title() + " has no " + CopyTypeName(type) +
                                   " rule for \"" + name + "\"");
    }
  }
  return found;
}

void Remove(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  if (call.Has("--all") != call.List("NAME").empty()) {
    throw Failure(kUsage, "give the names of rules, or --all");
  }
  std::list<BccInfo> rules;
  if (!call.Has("--all")) {
    call.Lock();
    rules = Find(domain, TypeOf(call, BCC_RECIPIENT), call);
  } else {
    call.Confirm("Remove all " + (call.Has("--type") ? call.Text("--type") + " " : std::string()) +
                 "BCC rules of domain " + domain.Title() + "?");
    for (const RuleType& kind : kTypes) {
      if (TypeOf(call, kind.type) == kind.type) {
        rules.splice(rules.end(), Read(domain.idx, kind.type, call));
      }
    }
  }
  BCC& bcc = Rules(domain.idx);
  if (bcc.deleteBCC(domain.idx, rules) != 0) {
    throw Failure(kFailed, "the rules could not be removed");
  }
  PublishBccRules(bcc);
  Json::Value record;
  record["removed"] = Json::arrayValue;
  for (const BccInfo& rule : rules) {
    record["removed"].append(CopyJson(rule));
  }
  call.out().Done(record,
                  std::to_string(rules.size()) +
                      " removed; the maps follow when they are made anew (mdomain bcc maps)");
}

void Import(Call& call) {
  RequireSettledSettings();
  const int domain_id = TypedDomain(call).idx;
  const int type = TypeOf(call, BCC_RECIPIENT);
  BCC& bcc = Rules(domain_id);
  ShowErrorsAtOnce();  // each bad line of the file has one
  const int result = bcc.importBCC(domain_id, type, call.Text("FILE"));
  if (result != 0) {
    throw Failure(result == -2 ? kRefused : kFailed,
                  call.Text("FILE") + " was not imported, no rule was changed");
  }
  PublishBccRules(bcc);
  const std::list<BccInfo> rules = Read(domain_id, type, call);
  Json::Value record;
  record["rules"] = static_cast<Json::UInt64>(rules.size());
  WarnOfDestinations(domain_id, rules, record);
  call.out().Done(record, "the domain has " + record["rules"].asString() + " " +
                              CopyTypeName(type) +
                              " rules now; mdomain bcc maps brings the maps up to date");
}

void Export(Call& call) {
  const int domain_id = TypedDomain(call).idx;
  const int type = TypeOf(call, BCC_RECIPIENT);
  const std::string file = call.Text("FILE");
  if (Rules(domain_id).exportBCC(domain_id, type, file) != 0) {
    throw Failure(kFailed, "the rules could not be written to " + file);
  }
  if (file == "-" || file == "/dev/stdout") {
    return;  // the rules have standard output to themselves
  }
  Json::Value record;
  record["file"] = file;
  record["rules"] = static_cast<Json::UInt64>(Read(domain_id, type, call).size());
  call.out().Done(record, record["rules"].asString() + " rules written to " + file);
}

const Argument kType = Option("--type", "TYPE",
                              "recipient (the default): mail to NAME; sender: mail from NAME; "
                              "domain: mail to and from every address of the domain");

const Register kBcc({
    "bcc",
    "Blind copies of the mail of an address, an account or a domain",
    {
        {"list",
         "List rules",
         "Without --type, rules of every type.",
         Effect::kReads,
         {DomainArgument(), kType, Option("--sort", "COLUMN", "name (the default) or destination"),
          Flag("--desc", "Descending"), Number("--limit", "At most N rules of the type"),
          Number("--offset", "Skip the first N rules of the type")},
         List},
        {"add",
         "Add a rule",
         "NAME is an address, or an account or alias of the domain, which stands for all its "
         "addresses there; with --type domain it is a name of the domain. An address has one "
         "destination: a rule for it comes before one for its domain.",
         Effect::kChanges,
         {DomainArgument(), One("NAME", "Whose mail is copied"),
          One("DESTINATION", "Who gets the copy: an address, or an account or alias of the domain"),
          kType, Flag("--replace", "Change the destination of a rule that is there")},
         Add},
        {"remove",
         "Remove rules",
         "--all without --type removes the rules of every type.",
         Effect::kDestroys,
         {DomainArgument(), Any("NAME", "The name of a rule, in any spelling"), kType,
          Flag("--all", "Every rule of the domain")},
         Remove},
        {"import",
         "Add rules from a file",
         "One rule per line, \"NAME DESTINATION\"; lines that begin with # are skipped, and an "
         "account name with blanks stands in double quotes. A rule that is there gets the new "
         "destination. When a line is wrong nothing is imported.",
         Effect::kChanges,
         {DomainArgument(), One("FILE", "The file to read"), kType},
         Import},
        {"export",
         "Write rules to a file, as import reads them",
         "",
         Effect::kReads,
         {DomainArgument(),
          One("FILE", "The file to write or replace, with mode 0600, or - for standard output"),
          kType},
         Export},
        {"maps",
         "Make the maps of all domains anew and compile them",
         "Shows where the maps are and the lines of main.cf that use them. Make the maps before "
         "main.cf names them: Postfix stops all mail when one is missing. When several rules are "
         "for one address the first by name counts, and the others are shown.",
         Effect::kChangesHere,
         {},
         MakeBccMaps,
         "There is no --dry-run: the maps follow from the rules, and mdomain doctor tells where "
         "they "
         "differ."},
    },
});

}  // namespace
}  // namespace mdomain
