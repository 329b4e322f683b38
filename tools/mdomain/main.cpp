// mdomain: the command-line management program. Parses, sets the stage (root, log, lock), runs one
// command of the table and turns how it ended into the exit status.
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>

#include "lib-domain/base/error_code.h"
#include "platform/include/host_settings.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/dry_run.h"
#include "tools/mdomain/lock_watch.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/parser.h"
#include "tools/mdomain/recorder.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

// Wrong host settings would otherwise turn up as one failed operation after the other.
void RequireHostSettings() {
  korvmailserver::HostSettings settings;
  std::string error;
  if (!korvmailserver::ReadHostSettings(settings, error)) {
    throw Failure(kUsage, error);
  }
}

// A program that runs with another account's rights does not read its caller's environment: what
// was meant for a trial folder would be done to the machine.
void RequireRootInForce() {
  if (secure_getenv("MDOMAIN_ROOT") == nullptr) {
    throw Failure(kUsage,
                  "--root and MDOMAIN_ROOT work only when mdomain runs with the rights of its "
                  "caller, not in a set-id copy");
  }
}

// Runs the command, publishes what it changed, then prints. A change that was made and did not
// reach the other machines is no failure: it is done here.
void Finish(Call& call, const Command& command, Recorder& recorder) {
  try {
    command.run(call);
  } catch (...) {
    if (!recorder.TakeBack()) {
      Note(
          "warning: what was done before the failure is still there: the next change takes it "
          "back");
    }
    const std::string why = call.EndPublication();
    recorder.Record();
    if (!why.empty()) {
      Note("warning: not published: " + why);
    }
    throw;
  }
  const std::string why = call.EndPublication();
  recorder.Record();
  call.out().Flush();
  ShowErrors();
  call.EndTelling();
  if (!why.empty()) {
    throw Failure(kUnpublished, "done here, not published: " + why, HowToPublish());
  }
}

const char* CodeOf(Status status) {
  switch (status) {
    case kUsage:
      return "usage";
    case kRefused:
      return "refused";
    case kNotFound:
      return "not-found";
    case kSpared:
      return "spared";
    case kUnpublished:
      return "unpublished";
    default:
      return "failed";
  }
}

bool& TellsJson() {
  static bool json = false;
  return json;
}

// What a run ends with: a line, or with --json one object that holds what was noted before, too.
int Tell(Status status, const std::string& message, const std::string& next) {
  const bool needs_cause = status == kFailed || (status == kUnpublished && next.empty());
  const std::string text = AsShown(needs_cause ? WithCause(message) : message);
  if (!TellsJson()) {
    const bool is_question = !text.empty() && text.back() == '?';  // "did you mean"
    ShowNotes();
    Note(text + (next.empty() || is_question ? "" : ". Next: " + next));
    return status;
  }
  Json::Value error;
  error["code"] = CodeOf(status);
  error["status"] = status;
  error["message"] = text;
  error["next"] = next.empty() ? UsualNext(status) : next;
  const std::vector<std::string> notes = TakeNotes();
  if (!notes.empty()) {
    error["warnings"] = JsonTexts(notes);
  }
  ClearStatus();
  std::cerr << JsonText(error);
  return status;
}

// The exit status of the work, with the message of what ended it.
template <typename Work>
int Guarded(const Work& work) {
  try {
    const int status = work();
    ShowNotes();
    return status;
  } catch (const Failure& failure) {
    return Tell(failure.status, failure.what(), failure.next);
  } catch (const korvmailserver::LogException& error) {
    const bool refused = error.code == korvmailserver::ERR_DUPLICATE_DOMAIN_NAME ||
                         error.code == korvmailserver::ERR_INVALID_DOMAIN_NAME;
    return Tell(refused ? kRefused : kFailed, error.what(), "");
  } catch (const std::exception& error) {
    return Tell(kFailed, error.what(), "");
  }
}

int RunOnCopies(const Parsed& parsed) {
  return Guarded([&parsed] {
    ShowLog(parsed.options.verbose);  // what happens on copies is not for the machine's log
    PlanPrinter printer(parsed);
    GlobalOptions options = parsed.options;
    options.yes = true;
    Call call(options, parsed.values);
    const Progress progress(call.ShowsProgress());
    try {
      parsed.command->run(call);
    } catch (const Failure& failure) {
      if (call.OfTrial().isNull()) {
        throw;
      }
      printer.Print(call);
      call.out().Flush();
      throw;
    }
    printer.Print(call);
    call.out().Flush();
    ShowErrors();
    return kDone;
  });
}

void SetRoot(const GlobalOptions& options) {
  if (!options.root.empty()) {
    const std::string root = std::filesystem::absolute(options.root);
    setenv("MDOMAIN_ROOT", root.c_str(), 1);
    RequireRootInForce();
  }
}

int Run(const Parsed& parsed) {
  SetRoot(parsed.options);
  ShowLog(parsed.options.verbose);
  RequireHostSettings();
  RequireDryRunIfAsked(parsed);
  if (IsDryRun(parsed)) {
    return DryRun(parsed, RunOnCopies);
  }
  // Before a database is opened, and until everything else has ended.
  Recorder recorder(parsed);
  Call call(parsed.options, parsed.values);
  WhenLocked() = [&recorder] { recorder.Begin(); };
  call.SetForecast([&parsed] { return Forecast(parsed); });
  if (parsed.command->effect != Effect::kReads) {
    call.out().Silence();
  }
  const Progress progress(call.ShowsProgress());
  if (parsed.command->effect == Effect::kChanges) {
    call.Lock();
  } else if (parsed.command->effect == Effect::kChangesHere) {
    call.LockHere();
  }
  Finish(call, *parsed.command, recorder);
  return kDone;
}

int Main(int argc, const char* const* argv) {
  // Also where the command line is wrong.
  const char* const* end =
      std::find_if(argv, argv + argc, [](const char* word) { return std::string(word) == "--"; });
  TellsJson() =
      std::any_of(argv, end, [](const char* word) { return std::string(word) == "--json"; });
  return Guarded([&]() -> int {
    const Parsed parsed = Parse(argc, argv);
    if (parsed.options.json && !parsed.options.verbose) {
      KeepNotes();
    }
    return parsed.command == nullptr ? kDone : Run(parsed);
  });
}

}  // namespace
}  // namespace mdomain

int main(int argc, char** argv) {
  return mdomain::Main(argc, argv);
}
