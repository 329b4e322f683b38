// mdomain edit: the document of the model in an editor, and back.
//
// Nothing is locked while somebody edits: whoever changes the model meanwhile goes on, and then the
// edited text is not applied. What was written is never thrown away.
#include <sys/auxv.h>
#include <unistd.h>

#include <iostream>

#include "tools/mdomain/apply.h"
#include "tools/mdomain/draft.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/recorder.h"
#include "tools/mdomain/stored_state.h"

namespace mdomain {
namespace {

// An editor starts other programs, so it must have no more rights than whoever sits before it.
void RequireEditor() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    throw Failure(kUsage, "an editor needs a terminal, and this is none",
                  "use mdomain export FILE, then mdomain apply FILE");
  }
  if (getauxval(AT_SECURE) != 0) {
    throw Failure(kUsage, "that works only with the rights of the caller, not in a set-id copy");
  }
}

bool WantsAgain() {
  std::cerr << "Edit it again? [Y/n] " << std::flush;
  std::string answer;
  return std::getline(std::cin, answer) && (answer.empty() || answer == "y" || answer == "yes");
}

// Until the text is one that can be applied, or nobody wants to go on. False where it says what is
// so already.
bool EditUntilGood(const Call& call, const std::string& exported, const Draft& draft,
                   DocumentPlan& plan) {
  for (;;) {
    EditFile(draft.path());
    if (!draft.IsChanged()) {
      return false;
    }
    const std::string state = StoredState();
    if (ExportedText(call) != exported) {
      throw Failure(kRefused, "the domains were changed meanwhile, and this text is of before");
    }
    try {
      plan = PlanDocument(call, draft.Text(), state);
      return plan.differs;
    } catch (const Failure& failure) {
      if (call.options().yes) {
        throw;  // "yes" would edit it again for ever
      }
      ShowNotes();
      Note(failure.what());
      if (!WantsAgain()) {
        throw Failure(failure.status, "nothing was changed", failure.next);
      }
    }
  }
}

void EditAndApply(Call& call, const std::string& exported, Draft& draft) {
  const bool is_trial = call.Has(DryRunFlag().name);
  DocumentPlan plan;
  if (EditUntilGood(call, exported, draft, plan) && !is_trial) {
    CarryOut(call, draft.Text(), plan, "Make the domains what you wrote?");
  }
  if (!is_trial) {
    draft.Use();
  }
  PrintPlan(call.out(), plan, !is_trial);
}

void Edit(Call& call) {
  RequireEditor();
  SettleInterruptedWhole(call);
  RequireReadyModel(call);
  const std::string exported = ExportedText(call);
  Draft draft("model.json", exported);
  try {
    EditAndApply(call, exported, draft);
  } catch (const Failure& failure) {
    if (!draft.IsChanged()) {
      throw;
    }
    throw Failure(failure.status,
                  std::string(failure.what()) + "; what you wrote is kept in " + draft.path(),
                  failure.next.empty() ? "mdomain apply " + draft.path() : failure.next);
  }
  if (call.Has(DryRunFlag().name) && draft.IsChanged()) {
    Note("what you wrote is kept in " + draft.path());
  }
}

const Register kEdit({
    "edit",
    "The whole model in an editor",
    {{"",
      "Edit the model as a document, and make it so",
      "Opens what mdomain export writes in $VISUAL, else $EDITOR, else editor or vi. When the "
      "editor has ended, the document is checked and tried on copies, what would change is shown, "
      "and a question asked, as by mdomain apply. What is wrong is named, and can be edited again. "
      "Nothing is locked meanwhile: when the domains were changed by somebody else, nothing is "
      "done. A text that was not applied is kept, and its file named. It needs a terminal.",
      Effect::kDestroys,
      {Argument{DryRunFlag().name, "", Kind::kFlag,
                "Show what the edited document would change, and keep it"}},
      Edit,
      "--dry-run opens the editor too."}},
});

}  // namespace
}  // namespace mdomain
