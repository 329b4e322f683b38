// mdomain doctor: one look at everything that can be wrong, and --repair for what mends itself.
#include "lib-domain/insight/doctor.h"

#include <json/value.h>

#include "lib-domain/api/updater.h"
#include "lib-domain/sync/kept_files.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/dry_run.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::INSIGHT::Findings;

// What a refresh would bring: one on copies, by a process of its own, tells it.
void CheckAccounts(Findings& findings) {
  const AccountsForecast accounts = ForecastRefresh();
  if (!accounts.is_told) {
    findings.push_back({"accounts", true,
                        "what a refresh would bring cannot be told: " + accounts.text,
                        "mdomain account check and mdomain refresh --dry-run say more"});
  } else if (!accounts.text.empty()) {
    findings.push_back({"accounts", false,
                        "the accounts are not as the last refresh found them: " + accounts.text,
                        "mdomain refresh"});
  }
}

Json::Value FindingJson(const Finding& finding) {
  Json::Value record;
  record["id"] = finding.id;
  record["kind"] = finding.is_error ? "error" : "warning";
  record["text"] = finding.text;
  record["cure"] = finding.cure;
  record["repair"] = finding.repair;
  record["page"] = finding.page;
  return record;
}

Colour ColourOfKind(const std::string& kind) {
  return kind == "error" ? Colour::kRed : Colour::kYellow;
}

void ListKinds(Call& call) {
  Json::Value records(Json::arrayValue);
  for (const auto& kind : MDOMAIN::INSIGHT::ListFindingKinds()) {
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
  {
    const Progress progress(call.ShowsProgress(), "looking at everything");
    for (const Finding& finding : MDOMAIN::INSIGHT::LookAtAll(CheckAccounts)) {
      errors += finding.is_error ? 1 : 0;
      records.append(FindingJson(finding));
    }
  }
  call.out().List(records,
                  {{"id", "FINDING"},
                   {"kind", "KIND", nullptr, ColourOfKind},
                   {"text", "WHAT"},
                   {"cure", "CURE"}},
                  "everything is in order");
  call.out().Flush();
  if (errors != 0) {
    ForgetWarnings();
    throw Failure(kFailed, Counted(errors, "error") + " found",
                  "take the cure that each finding names");
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
