// mdomain apply: the model becomes what a document says.
//
// A document is applied twice: a process of its own does it on copies, which is where everything is
// refused that no check of the document finds, and then it is done. Should that fail on the way,
// what was done is taken back.
#include "tools/mdomain/apply.h"

#include "lib-domain/base/text.h"
#include "lib-domain/document/site.h"
#include "tools/mdomain/document.h"
#include "tools/mdomain/dry_run.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/recorder.h"
#include "tools/mdomain/stored_state.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::DOCUMENT::Site;
using MDOMAIN::DOCUMENT::SiteAccounts;
using MDOMAIN::DOCUMENT::SiteJson;

constexpr const char* kSkip = "--skip-unknown";
constexpr const char* kForce = "--force";
constexpr const char* kWrittenDifferently = "the same is written differently";

// The site of the document; names who is not mirrored, and refuses the whole for them unless they
// are to be left out.
Site Wanted(const Call& call, const std::string& text, const SiteAccounts& accounts, bool tells) {
  MDOMAIN::DOCUMENT::TypedSite typed = MDOMAIN::DOCUMENT::ParseSite(text, accounts);
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

// Whether it would change something.
bool Differs(const Call& call, const std::string& text) {
  return WithDocuments([&] {
    const SiteAccounts accounts;
    const Site wanted = Wanted(call, text, accounts, true);
    return SiteJson(MDOMAIN::DOCUMENT::ReadSite(accounts)) != SiteJson(wanted);
  });
}

void MakeItSo(const Call& call, const std::string& text, bool tells) {
  RequireReadyModel(call);
  std::vector<std::string> warnings;
  WithDocuments([&] {
    const SiteAccounts accounts;
    MDOMAIN::DOCUMENT::MakeSite(Wanted(call, text, accounts, tells), accounts, warnings);
  });
  for (const std::string& warning : warnings) {
    Note("warning: " + warning);
  }
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
  const DocumentPlan plan = PlanDocument(call, text, StoredState());
  const std::string file = call.Text("FILE") == "-" ? "standard input" : call.Text("FILE");
  CarryOut(call, text, plan, "Make the domains what " + file + " says?");
  PrintPlan(call.out(), plan, true);
}

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

Progress ShownWork(const Call& call, const char* doing) {
  return Progress(call.ShowsProgress(), doing);
}

void RequireReadyModel(const Call& call) {
  RequireOwnModel(call);
  RequireSettledSettings();
}

DocumentPlan PlanDocument(const Call& call, const std::string& text, const std::string& before) {
  DocumentPlan plan;
  plan.before = before;
  {
    const Progress shown = ShownWork(call, "comparing");
    plan.differs = Differs(call, text);
  }
  if (plan.differs) {
    const Progress shown = ShownWork(call, "trying it on copies");
    plan.summary = FirstOf(TryOnCopies(call, text, plan.changes), "; ");
  }
  return plan;
}

void CarryOut(Call& call, const std::string& text, const DocumentPlan& plan,
              const std::string& question) {
  if (!plan.differs) {
    return;
  }
  call.SetForecast(nullptr);  // the question has what the copies told
  call.Ask(question + " " + plan.summary);
  call.Lock();
  if (StoredState() != plan.before) {
    throw Failure(kRefused, "the domains were changed meanwhile: run the same command again");
  }
  const Progress shown = ShownWork(call, "making it so");
  MakeItSo(call, text, false);
}

void PrintPlan(Output& out, const DocumentPlan& plan, bool is_done) {
  if (out.json()) {
    out.List(plan.changes, {});
  }
  for (const Json::Value& entry : plan.changes) {
    out.Line(entry["text"].asString(), ColourOfChange(entry));
  }
  out.Line(!plan.changes.empty()
               ? Counted(plan.changes.size(), "change") + (is_done ? " made" : " would be made")
           : plan.differs ? kWrittenDifferently
                          : "nothing to change");
}

}  // namespace mdomain
