// mdomain doctor: one look at everything that can be wrong, and --repair for what mends itself.
#include "tools/mdomain/doctor.h"

#include <json/value.h>

#include <algorithm>
#include <exception>

#include "lib-domain/api/updater.h"
#include "lib-domain/base/error_code.h"
#include "lib-domain/sync/kept_files.h"
#include "lib-domain/sync/reconcile.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

struct Kind {
  std::string id;
  std::string repair;  // what --repair does about it; empty for nothing
};

// Every finding there is; docs/manual/when-something-is-wrong.md has them all.
std::vector<Kind> AllKinds() {
  std::vector<Kind> kinds = {
      {"account-source", ""},
      {"accounts", ""},
      {"check", ""},
      {"copies", ""},
      {"database", ""},
      {"dead-end", ""},
      {"disclaimer-list", ""},
      {"dkim", ""},
      {"foreign-settings", ""},
      {"history", ""},
      {"key-store", ""},
      {"leftovers", ""},
      {"lost-model", ""},
      {"model", ""},
      {"no-address", ""},
      {"no-domain", ""},
      {"node", "publishes what has not reached the other machines"},
      {"postmaster", ""},
      {"programs", ""},
      {"published", "publishes the model"},
      {"rights", ""},
      {"timer", ""},
      {"undo", ""},
      {"uncompiled", ""},
      {"version", "upgrades the file"},
  };
  for (const auto& item : MDOMAIN::UTILS::ReconcileItems()) {
    kinds.push_back({IdOf(item.name), "makes it follow from the model"});
  }
  return kinds;
}

// A check that cannot go on is a finding as well, and the others go on.
void Look(void (*check)(Findings&), Findings& findings) {
  std::string error;
  try {
    check(findings);
    return;
  } catch (const korvmailserver::LogException& failure) {
    error = failure.what();
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  findings.push_back({"check", true, "a check could not go on: " + error, "look at the messages"});
}

Findings LookAtAll() {
  Findings findings;
  Look(CheckFiles, findings);
  if (IsModelUsable(findings)) {
    for (const auto check : {CheckReconciled, CheckModel, CheckRules, CheckAccounts}) {
      Look(check, findings);
    }
  }
  Look(CheckHost, findings);
  return findings;
}

Json::Value FindingJson(const Finding& finding, const std::vector<Kind>& kinds) {
  const auto kind = std::find_if(kinds.begin(), kinds.end(),
                                 [&](const Kind& each) { return each.id == finding.id; });
  if (kind == kinds.end()) {
    throw Failure(kFailed, "the finding " + finding.id + " has no page: " + finding.text);
  }
  Json::Value record;
  record["id"] = finding.id;
  record["kind"] = finding.is_error ? "error" : "warning";
  record["text"] = finding.text;
  record["cure"] = finding.cure.empty() ? "mdomain doctor --repair" : finding.cure;
  record["repair"] = kind->repair;
  record["page"] = "manual/when-something-is-wrong.md#" + finding.id;
  return record;
}

Colour ColourOfKind(const std::string& kind) {
  return kind == "error" ? Colour::kRed : Colour::kYellow;
}

void ListKinds(Call& call) {
  Json::Value records(Json::arrayValue);
  for (const Kind& kind : AllKinds()) {
    Json::Value record;
    record["id"] = kind.id;
    record["repair"] = kind.repair;
    records.append(record);
  }
  call.out().List(records, {{"id", "FINDING"}, {"repair", "REPAIR"}});
}

// The items of the reconcile step, after copies were set aside.
void Repair(Call& call) {
  call.Lock();
  std::string folder;
  if (!MDOMAIN::UTILS::KeepFilesAside(folder)) {
    throw Failure(kFailed, "nothing was repaired: the files could not be copied first");
  }
  if (!MDOMAIN::API::Updater().Trigger()) {
    throw Failure(kFailed,
                  "not everything could be repaired; the files of before are in " + folder);
  }
  const std::string why = call.EndPublication();
  call.Unlock();
  if (!why.empty()) {
    throw Failure(kUnpublished, "repaired here, not published: " + why);
  }
  call.out().Line("repaired what follows from the model; the files of before are in " + folder);
}

void Doctor(Call& call) {
  if (call.Has("--findings")) {
    ListKinds(call);
    return;
  }
  if (call.Has("--repair")) {
    Repair(call);
  }
  Json::Value records(Json::arrayValue);
  size_t errors = 0;
  const std::vector<Kind> kinds = AllKinds();
  for (const Finding& finding : LookAtAll()) {
    errors += finding.is_error ? 1 : 0;
    records.append(FindingJson(finding, kinds));
  }
  call.out().List(records,
                  {{"id", "FINDING"},
                   {"kind", "KIND", nullptr, ColourOfKind},
                   {"text", "WHAT"},
                   {"cure", "CURE"}},
                  "everything is in order");
  call.out().Flush();
  if (errors != 0) {
    throw Failure(kFailed, Counted(errors, "error") + " found");
  }
}

const Register kDoctor({
    "doctor",
    "Look at everything that can be wrong",
    {{"",
      "Look at everything that can be wrong",
      "Databases, rights, what follows from the model, what is published, users without address, "
      "rules that reach nobody, role addresses, accounts, programs, the timer. Changes nothing "
      "without --repair; with it databases, texts and DKIM keys are copied to a folder kept-TIME "
      "first, and what follows from the model is made as it should be. Ends with 1 when an error "
      "is found; "
      "warnings may be meant so.",
      Effect::kReads,
      {Flag("--repair", "Mend what differs from the model, then look again"),
       Flag("--findings", "List the findings there are, and what --repair does about each")},
      Doctor}},
});

}  // namespace
}  // namespace mdomain
