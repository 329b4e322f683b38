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
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/site.h"
#include "tools/mdomain/stored_state.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr const char* kSkip = "--skip-unknown";

void Export(Call& call) {
  const std::string text = JsonText(SiteJson(ReadSite(SiteAccounts())));
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
Site Wanted(const Call& call, const std::string& text, const SiteAccounts& accounts) {
  TypedSite typed = ParseSite(text, accounts);
  if (!typed.unknown.empty() && !call.Has(kSkip)) {
    throw Failure(kNotFound, "not in the mirror: " + MDOMAIN::BASE::Join(typed.unknown, ", ") +
                                 ". Next: run mdomain refresh, or give " + kSkip +
                                 " to leave them out");
  }
  for (const std::string& name : typed.unknown) {
    Note("left out: " + name);
  }
  return std::move(typed.site);
}

void MakeItSo(const Call& call, const std::string& text) {
  RequireOwnModel(call);
  RequireSettledSettings();
  const SiteAccounts accounts;
  MakeSite(Wanted(call, text, accounts), accounts);
}

// What it would change; throws what it is refused with.
std::vector<std::string> TryOnCopies(const Call& call, const std::string& text, Json::Value& plan) {
  std::vector<std::string> typed = {"--json", "apply", "-"};
  if (call.Has(kSkip)) {
    typed.emplace_back(kSkip);
  }
  const Trial trial = Try(typed, text);
  if (trial.status != kDone) {
    throw Failure(static_cast<Status>(trial.status < 0 ? kFailed : trial.status),
                  trial.message.empty() ? "the document could not be tried" : trial.message,
                  trial.next);
  }
  if (trial.plan.empty()) {
    std::cerr << trial.warnings;  // where something changes the change itself says it
  }
  plan = trial.plan;
  std::vector<std::string> sentences;
  for (const Json::Value& entry : plan) {
    sentences.push_back(entry["text"].asString());
  }
  return sentences;
}

void Print(Output& out, const Json::Value& plan) {
  if (out.json()) {
    out.List(plan, {});
  }
  for (const Json::Value& entry : plan) {
    out.Line(entry["text"].asString(), ColourOfChange(entry));
  }
  out.Line(plan.empty() ? "nothing to change" : Counted(plan.size(), "change") + " made");
}

void Apply(Call& call) {
  const std::string text = ReadInput(call.Text("FILE"), kNotFound);
  if (call.Has(DryRunFlag().name)) {
    call.Lock();
    MakeItSo(call, text);
    return;
  }
  const std::string before = StoredState();
  Json::Value plan;
  const std::vector<std::string> sentences = TryOnCopies(call, text, plan);
  if (!sentences.empty()) {
    call.Ask("Make the domains what " + call.Text("FILE") + " says? " + FirstOf(sentences, "; "));
    call.Lock();
    if (StoredState() != before) {
      throw Failure(kRefused, "the domains were changed meanwhile: run the same command again");
    }
    MakeItSo(call, text);
  }
  Print(call.out(), plan);
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
       Flag(kSkip, "Name accounts and groups that are not mirrored, and leave them out")},
      Apply}},
});

}  // namespace
}  // namespace mdomain
