// The table as CLI11 sees it: one app per word. Every app but the last wants exactly one more word,
// which also keeps CLI11 from taking a user called "group" for the noun. Only nouns that were typed
// get their commands: making all of them costs a short command a tenth of its time.
#include "tools/mdomain/parser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <list>
#include <sstream>

#include "tools/mdomain/manual.h"
#include "tools/mdomain/suggestion.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using Values = std::map<std::string, std::vector<std::string>>;

// CLI11 does not wrap help texts; it only indents after each line end.
std::string Wrapped(const std::string& text, size_t width) {
  std::istringstream words(text);
  std::string word;
  std::string result;
  size_t column = 0;
  while (words >> word) {
    const bool fits = column + 1 + word.size() <= width;
    result += result.empty() ? "" : fits ? " " : "\n";
    column = fits ? column + 1 + word.size() : word.size();
    result += word;
  }
  return result;
}

constexpr size_t kHelpWidth = 70;
constexpr size_t kLineWidth = 100;

void AddArgument(CLI::App& app, const Argument& argument, std::vector<std::string>& values,
                 bool& given) {
  if (argument.kind == Kind::kFlag) {
    app.add_flag(argument.name, given, Wrapped(argument.help, kHelpWidth));
    return;
  }
  CLI::Option* option = app.add_option(argument.name, values, Wrapped(argument.help, kHelpWidth));
  // Without this "--alias a b" would take both, and "[a,b]" would be split at its commas.
  option->allow_extra_args(false);
  option->type_name(argument.value);
  switch (argument.kind) {
    case Kind::kOne:
      option->required()->expected(1);
      break;
    case Kind::kOptional:
      option->expected(1);
      break;
    case Kind::kMany:
      option->required()->expected(-1);
      break;
    case Kind::kAny:
      option->expected(-1);
      break;
    case Kind::kRepeated:
      option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
      break;
    default:
      option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::Throw);
  }
}

// Below the help of a command.
std::string ExamplesOf(const std::string& noun, const std::string& words) {
  Manual manual = ReadManual();
  std::string text;
  for (const Example& example : manual.nouns[noun].commands[words].examples) {
    for (const std::string& line : example.lines) {
      text += line.rfind("$ ", 0) == 0 ? "\n  " + line.substr(2) : "";
    }
  }
  return text.empty() ? "" : "Examples, also in mdomain-" + noun + "(1):" + text;
}

// One command, and where CLI11 stores what was typed for it.
struct Leaf {
  std::string words;
  const Command* command;
  CLI::App* app;
  std::map<std::string, std::vector<std::string>> values;
  std::map<std::string, bool> flags;
};

// The app of `words` below `app`, made word by word ("names add" is two levels).
CLI::App* SubApp(CLI::App* app, const std::string& words, const std::string& help) {
  std::istringstream stream(words);
  std::string word;
  while (stream >> word) {
    const auto known =
        app->get_subcommands([&](const CLI::App* below) { return below->get_name() == word; });
    if (known.empty()) {
      app->require_subcommand(1, 1);
      app = app->add_subcommand(word)->fallthrough();
    } else {
      app = known.front();
    }
  }
  app->description(help);
  return app;
}

void AddCommand(CLI::App* noun_app, const std::string& noun, const Command& command,
                std::list<Leaf>& leaves) {
  CLI::App* app = SubApp(noun_app, command.words, command.help);
  if (command.run == nullptr) {
    return;
  }
  leaves.push_back(
      {noun + (command.words.empty() ? "" : " " + command.words), &command, app, {}, {}});
  Leaf& leaf = leaves.back();
  for (const Argument& argument : command.arguments) {
    AddArgument(*app, argument, leaf.values[argument.name], leaf.flags[argument.name]);
  }
  const std::string words = command.words;
  const std::string detail = command.detail;
  app->footer([noun, words, detail] {
    const std::string examples = ExamplesOf(noun, words);
    const std::string gap = detail.empty() || examples.empty() ? "" : "\n\n";
    return "\n" + Wrapped(detail, kLineWidth) + gap + examples;
  });
}

Values Given(const Leaf& leaf) {
  Values given;
  for (const Argument& argument : leaf.command->arguments) {
    if (leaf.app->count(argument.name) != 0) {
      given[argument.name] = leaf.values.at(argument.name);
    }
  }
  return given;
}

std::vector<std::string> Typed(int argc, const char* const* argv) {
  std::vector<std::string> typed;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--") {
      typed.insert(typed.end(), argv + i, argv + argc);
      break;
    }
    if (word == "--root") {
      ++i;
    } else if (word != "-y" && word != "--yes" && word.rfind("--root=", 0) != 0) {
      typed.push_back(word);
    }
  }
  return typed;
}

void AddGlobals(CLI::App& app, GlobalOptions& options) {
  const std::vector<Argument> arguments = GlobalArguments();
  auto help = [&](size_t i) { return Wrapped(arguments[i].help, kHelpWidth); };
  app.add_option("--root", options.root, help(0))
      ->type_name("DIR")
      ->envname("MDOMAIN_ROOT")
      ->check(CLI::ExistingDirectory.description(""));
  app.add_flag("--json", options.json, help(1));
  app.add_flag("-v,--verbose", options.verbose, help(2));
  app.add_flag("-y,--yes", options.yes, help(3));
  app.add_option("--lock-timeout", options.lock_timeout, help(4))
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 86400).description(""));
  app.set_version_flag("--version", std::string("mdomain ") + MDOMAIN_VERSION, help(5));
}

}  // namespace

std::vector<Argument> GlobalArguments() {
  return {Option("--root", "DIR",
                 "Work below DIR instead of /: its databases, settings and, if it has an "
                 "etc/passwd, its accounts"),
          Flag("--json", "Print one JSON array or object and nothing else on standard output"),
          Flag("-v, --verbose", "Show every log line on standard error, notices too"),
          Flag("-y, --yes", "Do not ask before something is removed"),
          Option("--lock-timeout", "SECONDS",
                 "How long to wait for another changing run of mdomain (default 60)"),
          Flag("--version", "Print the version")};
}

namespace {

// Where the words of the command begin; past the end when there are none.
size_t FirstWord(const std::vector<const char*>& words) {
  size_t at = 1;
  while (at < words.size() && words[at][0] == '-') {
    const std::string option = words[at];
    at += option == "--root" || option == "--lock-timeout" ? 2 : 1;
  }
  return at;
}

// "help NOUN VERB" is "NOUN VERB --help".
std::vector<const char*> WithoutHelpWord(int argc, const char* const* argv) {
  std::vector<const char*> words(argv, argv + argc);
  const size_t at = FirstWord(words);
  if (at < words.size() && std::string(words[at]) == "help") {
    words.erase(words.begin() + static_cast<std::ptrdiff_t>(at));
    words.push_back("--help");
  }
  return words;
}

// Names a word that begins no command, and what may have been meant.
void RequireKnownWords(const std::vector<const char*>& words) {
  const size_t at = FirstWord(words);
  if (at >= words.size()) {
    return;
  }
  std::vector<std::string> known;
  for (const auto& [name, noun] : Nouns()) {
    known.push_back(name);
  }
  const std::string typed = words[at];
  const auto noun = Nouns().find(typed);
  if (noun == Nouns().end()) {
    throw Failure(kUsage, "there is no command \"" + typed + "\"" + DidYouMean(typed, known) +
                              " (mdomain --help lists them)");
  }
  known.clear();
  for (const Command& command : noun->second.commands) {
    known.push_back(command.words.substr(0, command.words.find(' ')));
  }
  const std::string verb = at + 1 < words.size() ? words[at + 1] : "";
  const bool has_verbs = std::count(known.begin(), known.end(), "") == 0;
  if (has_verbs && !verb.empty() && verb[0] != '-' &&
      std::count(known.begin(), known.end(), verb) == 0) {
    throw Failure(kUsage, "there is no command \"" + typed + " " + verb + "\"" +
                              DidYouMean(verb, known) + " (mdomain " + typed +
                              " --help lists them)");
  }
}

Parsed ParseKnown(int argc, const char* const* argv) {
  Parsed parsed;
  CLI::App app("Manages mail domains: their names, users, groups and addresses.", "mdomain");
  app.require_subcommand(1, 1);
  app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
    return "mdomain: " + Printable(error.what()) + "\nmdomain [COMMAND] --help says more.\n";
  });
  AddGlobals(app, parsed.options);
  std::list<Leaf> leaves;
  for (const auto& [name, noun] : Nouns()) {
    CLI::App* noun_app = SubApp(&app, name, noun.help);
    if (noun.help.empty()) {
      noun_app->group("");  // hidden
    }
    const auto is_name = [&name = name](const char* word) { return name == word; };
    if (std::any_of(argv, argv + argc, is_name)) {
      for (const Command& command : noun.commands) {
        AddCommand(noun_app, name, command, leaves);
      }
    }
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    parsed.status = app.exit(error) == 0 ? kDone : kUsage;
    return parsed;
  }
  for (const Leaf& leaf : leaves) {
    if (leaf.app->parsed()) {
      parsed.command = leaf.command;
      parsed.words = leaf.words;
      parsed.values = Given(leaf);
      parsed.typed = Typed(argc, argv);
    }
  }
  return parsed;
}

}  // namespace

Parsed Parse(int argc, const char* const* argv) {
  const std::vector<const char*> words = WithoutHelpWord(argc, argv);
  RequireKnownWords(words);
  return ParseKnown(static_cast<int>(words.size()), words.data());
}

}  // namespace mdomain
