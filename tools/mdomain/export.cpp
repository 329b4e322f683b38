// mdomain export, apply: the whole model as one document, and the other way.
//
// A document is applied twice: a process of its own does it on copies, which is where everything is
// refused that no check of the document finds, and then it is done. Should that fail on the way,
// what was done is taken back.
#include <cerrno>
#include <cstring>
#include <iostream>

#include "lib-domain/api/export_file.h"
#include "lib-domain/base/text.h"
#include "platform/include/files.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/document.h"
#include "tools/mdomain/dry_run.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/recorder.h"
#include "tools/mdomain/site.h"
#include "tools/mdomain/stored_state.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr const char* kSkip = "--skip-unknown";
constexpr const char* kForce = "--force";
constexpr const char* kWrittenDifferently = "the same is written differently";

// For somebody who waits, until the next one.
Progress Shown(const Call& call, const char* doing) {
  return Progress(!call.IsQuiet() && !call.options().json, doing);
}

void Export(Call& call) {
  std::string text;
  {
    const Progress shown = Shown(call, "reading the domains");
    text = JsonText(SiteJson(ReadSite(SiteAccounts())));
  }
  const std::string file = call.Text("FILE");
  if (file.empty()) {
    call.out().Raw(text);
    return;
  }
  if (MDOMAIN::API::INTERNAL::WriteExport(file, text) < 0) {
    throw Failure(kFailed, file + " could not be written: " + std::strerror(errno));
  }
}

// The site of the document; names who is not mirrored, and refuses the whole for them unless they
// are to be left out.
Site Wanted(const Call& call, const std::string& text, const SiteAccounts& accounts, bool tells) {
  TypedSite typed = ParseSite(text, accounts);
  if (!typed.unknown.empty() && !call.Has(kSkip)) {
    throw Failure(kNotFound, "not in the mirror: " + MDOMAIN::BASE::Join(typed.unknown, ", ") +
                                 ". Next: run mdomain refresh, or give " + kSkip +
                                 " to leave them out");
  }
  for (const std::string& name : tells ? typed.unknown : std::vector<std::string>()) {
    Note("left out: " + name);
  }
  for (const std::string& doubt : tells ? typed.doubts : std::vector<std::string>()) {
    Note("warning: " + doubt);
  }
  return std::move(typed.site);
}

// Whether it would change something. A domain that is the only one cannot go.
bool Differs(const Site& wanted, const SiteAccounts& accounts) {
  const Site is = ReadSite(accounts);
  if (wanted.domains.empty() && !is.domains.empty()) {
    throw Failure(kRefused, "$.domains: has none, and the primary domain cannot be deleted");
  }
  return SiteJson(is) != SiteJson(wanted);
}

void RequireReady(const Call& call) {
  RequireOwnModel(call);
  RequireSettledSettings();
}

void MakeItSo(const Call& call, const std::string& text, bool tells) {
  RequireReady(call);
  const SiteAccounts accounts;
  MakeSite(Wanted(call, text, accounts, tells), accounts);
}

// What it would change; throws what it is refused with.
std::vector<std::string> TryOnCopies(const Call& call, const std::string& text, Json::Value& plan) {
  std::vector<std::string> typed = {"--json", "apply", "-"};
  if (call.Has(kSkip)) {
    typed.emplace_back(kSkip);
  }
  if (call.Has(kForce)) {
    typed.emplace_back(kForce);
  }
  const Trial trial = Try(typed, text, call.options().lock_timeout);
  if (trial.status != kDone) {
    throw Failure(static_cast<Status>(trial.status < 0 ? kFailed : trial.status),
                  trial.message.empty() ? "the document could not be tried" : trial.message,
                  trial.next);
  }
  plan = trial.plan;
  std::vector<std::string> sentences;
  for (const Json::Value& entry : plan) {
    sentences.push_back(entry["text"].asString());
  }
  if (sentences.empty()) {
    sentences.emplace_back(kWrittenDifferently);
  }
  return sentences;
}

void Print(Output& out, const Json::Value& plan, bool differs) {
  if (out.json()) {
    out.List(plan, {});
  }
  for (const Json::Value& entry : plan) {
    out.Line(entry["text"].asString(), ColourOfChange(entry));
  }
  out.Line(!plan.empty() ? Counted(plan.size(), "change") + " made"
           : differs     ? kWrittenDifferently
                         : "nothing to change");
}

void Apply(Call& call) {
  const std::string text = ReadInput(call.Text("FILE"), kNotFound);
  if (call.Has(DryRunFlag().name)) {
    call.Lock();
    MakeItSo(call, text, true);
    return;
  }
  SettleInterruptedWhole(call);
  if (!call.Has(kForce)) {
    RequireOwnModel(call);
  }
  const std::string before = StoredState();
  Json::Value plan(Json::arrayValue);
  std::vector<std::string> sentences;
  bool differs = false;
  {
    const Progress shown = Shown(call, "comparing");
    const SiteAccounts accounts;
    differs = Differs(Wanted(call, text, accounts, true), accounts);
  }
  if (differs) {
    {
      const Progress shown = Shown(call, "trying it on copies");
      sentences = TryOnCopies(call, text, plan);
    }
    const std::string file = call.Text("FILE") == "-" ? "standard input" : call.Text("FILE");
    call.SetForecast(nullptr);  // the question has what the copies told
    call.Ask("Make the domains what " + file + " says? " + FirstOf(sentences, "; "));
    call.Lock();
    if (StoredState() != before) {
      throw Failure(kRefused, "the domains were changed meanwhile: run the same command again");
    }
    const Progress shown = Shown(call, "making it so");
    MakeItSo(call, text, false);
  }
  Print(call.out(), plan, differs);
}

const Register kExport({
    "export",
    "The whole model as one document",
    {{"",
      "Write the whole model as one JSON document",
      "Domains with names, users, groups, roles, aliases, blind copies and disclaimers, and the "
      "settings that people make, by names alone: for a backup that can be read and compared, or "
      "for another machine. The same model gives the same bytes. DKIM keys, the account source and "
      "the history are not in it. export.schema.json describes it.",
      Effect::kReads,
      {Optional("FILE", "Where it goes, for its owner alone; without it to standard output")},
      Export}},
});

const Register kApply({
    "apply",
    "Make the model what a document says",
    {{"",
      "Make the model what a document of mdomain export says",
      "All or nothing: the document is checked, then applied to copies, and only then for real; if "
      "that fails on the way, what was done is taken back. Domains, users, groups and rules that "
      "the document has not are removed. A model that is so already is left alone. Accounts and "
      "groups must be mirrored (mdomain refresh).",
      Effect::kDestroys,
      {One("FILE", "The document; - is standard input"),
       Flag(kSkip, "Name accounts and groups that are not mirrored, and leave them out"),
       ForceFlag("Make a lost model anew, without what is left of its domains elsewhere")},
      Apply}},
});

}  // namespace
}  // namespace mdomain
