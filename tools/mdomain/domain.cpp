// mdomain domain: the domains themselves. Their additional names are in domain_names.cpp.
#include "lib-domain/api/domain.h"

#include <algorithm>

#include "lib-domain/api/updater.h"
#include "lib-domain/base/text.h"
#include "lib-domain/control/departure.h"
#include "lib-domain/control/outside_settings.h"
#include "lib-domain/utils/domain_utils.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/domain_name.h"
#include "tools/mdomain/domain_output.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/pattern.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

// The refusal of an invalid record, naming the value that was wrong.
Failure Invalid(const MDOMAIN::RECORD::Domain& domain) {
  if (!IsDomainName(domain.GetDomainName())) {
    return {kRefused, "\"" + domain.GetDomainName() + "\" is not a valid domain name"};
  }
  return NoPattern(domain.GetDefaultAliasPattern());
}

Failure Refusal(const MDOMAIN::API::Domain& api, const MDOMAIN::RECORD::Domain& domain,
                const std::string& action) {
  return api.GetErrorCode() == 5633 ? Invalid(domain) : ApiFailure(api.GetErrorCode(), action);
}

// Puts the typed properties into the record; false when none was typed.
bool Apply(const Call& call, MDOMAIN::RECORD::Domain& domain) {
  if (call.Has("--auto-add") && call.Has("--no-auto-add")) {
    throw Failure(kUsage, "--auto-add and --no-auto-add exclude each other");
  }
  bool any = call.Has("--auto-add") || call.Has("--no-auto-add");
  if (any) {
    domain.SetIsAutomaticallyAddingUsers(call.Has("--auto-add"));
  }
  if (call.Has("--description")) {
    RequirePlainText("the description", call.Text("--description"));
    domain.SetDomainDesc(call.Text("--description"));
    any = true;
  }
  if (call.Has("--pattern")) {
    RequirePlainText("the pattern", call.Text("--pattern"));
    RequireUsablePattern(call.Text("--pattern"));
    domain.SetDefaultAliasPattern(call.Text("--pattern"));
    any = true;
  }
  return any;
}

void PrintDone(Call& call, int domain_idx, const std::string& what) {
  const Domains domains;
  const KnownDomain& domain = domains.Find(std::to_string(domain_idx));
  call.out().Done(DomainJson(domain), "domain " + domain.Title() + " " + what);
}

// A domain that adds accounts adds those that a refresh finds new, and no others.
void SayWhoIsLeftOut(const KnownDomain& domain) {
  MDOMAIN::DB::UserDBFilter filter;
  filter.SetLimit(1);
  if (!ListUsers(filter).empty()) {
    Note("accounts that were there before are not in it: mdomain user add " + domain.name +
         " --all adds them");
  }
}

void Create(Call& call) {
  MDOMAIN::RECORD::Domain domain(StorableName(call.Text("NAME")));
  domain.SetIsPrimary(false);
  Apply(call, domain);
  RequireOwnModel(call);
  MDOMAIN::API::Domain api;
  int idx = 0;
  const bool created =
      call.Has("--primary") ? api.CreatePrimary(domain, idx) : api.Create(domain, idx);
  if (!created) {
    throw Refusal(api, domain, "creating \"" + domain.GetDomainName() + "\"");
  }
  PrintDone(call, idx, "created");
  if (domain.IsAutomaticallyAddingUsers() && !call.out().json()) {
    SayWhoIsLeftOut(Domains().Find(std::to_string(idx)));
  }
}

void Migrate(Call& call) {
  MDOMAIN::RECORD::Domain domain(StorableName(call.Text("NAME")));
  Apply(call, domain);
  const std::vector<std::string> names = StorableNames(call.List("--name"));
  RequireOwnModel(call);
  MDOMAIN::API::Domain api;
  if (!api.Migrate(domain, names)) {
    throw Refusal(api, domain, "migrating \"" + domain.GetDomainName() + "\"");
  }
  PrintDone(call, Domains().Find(domain.GetDomainName()).idx, "migrated");
}

void List(Call& call) {
  auto filter = ListingFilter<MDOMAIN::DB::DomainDBFilter>(call);
  MDOMAIN::API::Domain api;
  std::vector<MDOMAIN::RECORD::Domain> domains;
  std::map<int, std::vector<std::string>> names;
  if (!api.List(filter, domains) || !api.ListAllAdditionalDomains(names)) {
    throw Failure(kFailed, "the domains could not be read");
  }
  Json::Value records(Json::arrayValue);
  for (const MDOMAIN::RECORD::Domain& domain : domains) {
    records.append(DomainJson(domain, names[domain.GetDomainIdx()]));
  }
  call.out().List(records, DomainColumns());
}

void Set(Call& call) {
  MDOMAIN::RECORD::Domain domain = DomainRecords({TypedDomain(call).idx}).front();
  const bool changed = Apply(call, domain);
  if (!changed && !call.Has("--name")) {
    throw Failure(kUsage, "nothing to set: give --name, --description, --pattern or --auto-add");
  }
  if (call.Has("--name")) {
    domain.SetDomainName(StorableName(call.Text("--name")));
  }
  MDOMAIN::API::Domain api;
  if (!api.Set(domain)) {
    throw Refusal(api, domain, "changing the domain to \"" + domain.GetDomainName() + "\"");
  }
  PrintDone(call, domain.GetDomainIdx(), "changed");
}

// Whether one of the indexes still has its domain.
bool AreThere(const std::vector<int>& idxs) {
  const Domains domains;
  return std::any_of(domains.all().begin(), domains.all().end(), [&](const KnownDomain& domain) {
    return std::find(idxs.begin(), idxs.end(), domain.idx) != idxs.end();
  });
}

// A domain as typed: one of the model, or one whose deletion was not finished.
struct TypedForDeletion {
  int idx;
  std::string title;
  bool is_gone;
};

// What a deletion left under the index: "BCC rules (FILE), disclaimers (FOLDER)".
std::string Leftovers(int idx) {
  std::vector<std::string> kinds;
  if (!MDOMAIN::CONTROL::INTERNAL::ListUnderIndex(idx, kinds)) {
    return "settings (the messages above say where)";
  }
  return MDOMAIN::BASE::Join(kinds, ", ");
}

// Takes what the text names from the deletions that are on record; false when none of them is
// meant.
bool FindUnfinished(const std::string& text, TypedForDeletion& found) {
  std::vector<MDOMAIN::CONTROL::INTERNAL::PendingDeparture> pending;
  if (!MDOMAIN::CONTROL::INTERNAL::ListPendingDepartures(pending)) {
    throw Failure(kFailed, "the domains could not be read");
  }
  for (const auto& departure : pending) {
    if (!departure.deleted_name.empty() && (text == std::to_string(departure.domain_idx) ||
                                            SameDomainName(text, departure.deleted_name))) {
      found = {departure.domain_idx,
               std::to_string(departure.domain_idx) + " (" + departure.deleted_name + ")", true};
      return true;
    }
  }
  int idx = 0;
  if (!MDOMAIN::BASE::ConvertToInt(text, idx) || idx < 1 || Leftovers(idx).empty()) {
    return false;
  }
  found = {idx, text, true};
  return true;
}

TypedForDeletion FindForDeletion(const Domains& domains, const std::string& text) {
  TypedForDeletion found;
  const bool is_known =
      std::any_of(domains.all().begin(), domains.all().end(), [&](const KnownDomain& domain) {
        return text == std::to_string(domain.idx) || SameDomainName(text, domain.name);
      });
  if (!is_known && FindUnfinished(text, found)) {
    return found;
  }
  const KnownDomain& domain = domains.Find(text);
  if (domain.is_primary) {
    throw Failure(kRefused, "domain " + domain.Title() +
                                " is the primary domain: make another one primary first");
  }
  return {domain.idx, domain.Title(), false};
}

// Ends the command when something of the domains is left. Publishing also reconciles, so it is what
// tries again.
void RequireFinished(const std::vector<TypedForDeletion>& typed) {
  const bool is_published = MDOMAIN::API::Updater().Trigger();
  for (const TypedForDeletion& domain : typed) {
    const std::string left = Leftovers(domain.idx);
    if (!left.empty()) {
      throw Failure(kFailed, "domain " + domain.title + " deleted, but its " + left +
                                 " could not be removed: run the same command again");
    }
  }
  if (!is_published) {
    throw Failure(kUnpublished, "the deletion could not be published: run mdomain publish");
  }
}

void Delete(Call& call) {
  const Domains domains;
  std::vector<TypedForDeletion> typed;
  std::vector<int> idxs;
  std::string deleted;
  std::string finished;
  Json::Value done;
  for (const std::string& text : call.List("DOMAIN")) {
    typed.push_back(FindForDeletion(domains, text));
    std::string& titles = typed.back().is_gone ? finished : deleted;
    titles += (titles.empty() ? "" : ", ") + typed.back().title;
    if (!typed.back().is_gone) {
      idxs.push_back(typed.back().idx);
    }
    done["deleted"].append(typed.back().idx);
  }
  int users = 0;
  for (const MDOMAIN::RECORD::Domain& record : DomainRecords(idxs)) {
    users += record.GetUserNum();
  }
  call.Confirm(idxs.empty() ? "Finish the deletion of domain " + finished + "?"
                            : "Delete domain " + deleted + " with the addresses of " +
                                  Counted(static_cast<size_t>(users), "user") +
                                  " and all its mail settings?");
  const bool is_deleted = idxs.empty() || MDOMAIN::API::Domain().Delete(idxs);
  if (!is_deleted && AreThere(idxs)) {
    throw Failure(kFailed, "deleting domain " + deleted + " failed");
  }
  if (!is_deleted || !finished.empty()) {
    RequireFinished(typed);
  }
  const std::string deleted_sentence = deleted.empty() ? "" : "domain " + deleted + " deleted";
  const std::string finished_sentence =
      finished.empty() ? "" : "deletion of domain " + finished + " finished";
  call.out().Done(done, deleted_sentence + (deleted.empty() || finished.empty() ? "" : ", ") +
                            finished_sentence);
}

void Primary(Call& call) {
  if (!call.Has("DOMAIN")) {
    const Domains domains;
    if (domains.all().empty() || !domains.all().front().is_primary) {
      throw Failure(kNotFound, "there is no primary domain");
    }
    call.out().Record(DomainJson(domains.all().front()), DomainColumns());
    return;
  }
  call.out().Silence();
  call.Lock();
  const int idx = TypedDomain(call).idx;
  MDOMAIN::API::Domain api;
  if (!api.SetPrimary(idx)) {
    throw ApiFailure(api.GetErrorCode(),
                     "making domain " + call.Text("DOMAIN") + " the primary one");
  }
  PrintDone(call, idx, "is the primary domain");
}

const std::vector<Argument> kProperties = {
    Option("--description", "TEXT", "What the domain is for"),
    Option("--pattern", "PATTERN",
           "How aliases are made for new users: text with placeholders such as <a>, <1g>.<s>"),
    Flag("--auto-add", "Add new accounts automatically, with each refresh"),
    Flag("--no-auto-add", "Do not add new accounts automatically"),
};

const Argument kForce = ForceFlag(
    "Also in a lost model, or where settings under domain indexes are those of another model's "
    "domains: these are removed");

const Register kDomain({
    "domain",
    "Mail domains and their additional names",
    {
        {"create", "Create a domain",
         "The first domain becomes the primary one. A new domain has the alias pattern <a> and "
         "adds new accounts automatically, unless told otherwise.",
         Effect::kChanges,
         Joined({One("NAME", "The domain's name, UTF-8 or punycode"),
                 Flag("--primary",
                      "Make it the primary domain, take in every group of the account system and "
                      "refresh; undone if one of these fails"),
                 kForce},
                kProperties),
         Create},
        {"migrate", "Bring a single-domain installation into the database",
         "Without any domain this creates the primary domain as create --primary does. Otherwise "
         "it "
         "gives the primary domain the new name and properties. It can be repeated.",
         Effect::kChanges,
         Joined({One("NAME", "The domain's name"),
                 Repeated("--name", "NAME", "An additional name of the domain"), kForce},
                kProperties),
         Migrate},
        {"list", "List domains", "", Effect::kReads,
         ListingArguments("domains", "name or description"), List},
        {"set", "Change a domain's name or properties",
         "A new name that differs from the old one only in letter case is refused as taken.",
         Effect::kChanges,
         Joined({DomainArgument(), Option("--name", "NAME", "Its new name")}, kProperties), Set},
        {"delete",
         "Delete domains",
         "A domain's addresses, additional names, BCC rules, disclaimers, DKIM keys and limits are "
         "deleted with it. The primary domain cannot be deleted.",
         Effect::kDestroys,
         {Many("DOMAIN", "Index or any name of a domain")},
         Delete},
        {"primary",
         "Show the primary domain, or make another one primary",
         "",
         Effect::kReads,
         {Optional("DOMAIN", "Index or any name of the domain that becomes primary"), DryRunFlag()},
         Primary},
    },
});

}  // namespace
}  // namespace mdomain
