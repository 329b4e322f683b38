// The table as CLI11 sees it: one app per word. Every app but the last wants exactly one more word,
// which also keeps CLI11 from taking a user called "group" for the noun. Only nouns that were typed
// get their commands: making all of them costs a short command a tenth of its time.
#include "tools/mdomain/parser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <list>
#include <sstream>

#include "lib-domain/base/text.h"
#include "tools/mdomain/manual.h"
#include "tools/mdomain/suggestion.h"
#include "tools/mdomain/terminal.h"

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

constexpr int kLineWidth = 100;
constexpr int kNamesWidth = 30;  // of options and commands, before what is said of them

// Of help texts, in a window as in a file.
size_t LineWidth() {
  static const int window = TerminalOfOutput().width;
  return static_cast<size_t>(window == 0 ? kLineWidth
                                         : std::clamp(window, 2 * kNamesWidth, kLineWidth));
}

size_t HelpWidth() {
  return LineWidth() - kNamesWidth;
}

void AddArgument(CLI::App& app, const Argument& argument, std::vector<std::string>& values,
                 bool& given) {
  if (argument.kind == Kind::kFlag) {
    app.add_flag(argument.name, given, Wrapped(argument.help, HelpWidth()));
    return;
  }
  CLI::Option* option = app.add_option(argument.name, values, Wrapped(argument.help, HelpWidth()));
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
  app->description(Wrapped(help, HelpWidth()));
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
    return "\n" + Wrapped(detail, LineWidth()) + gap + examples;
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
  auto help = [&](size_t i) { return Wrapped(arguments[i].help, HelpWidth()); };
  app.add_option("--root", options.root, help(0))
      ->type_name("DIR")
      ->envname("MDOMAIN_ROOT")
      ->check(CLI::ExistingDirectory.description(""));
  app.add_flag("--json", options.json, help(1));
  app.add_flag("-v,--verbose", options.verbose, help(2));
  app.add_flag("-q,--quiet", options.quiet, help(3));
  app.add_flag("-y,--yes", options.yes, help(4));
  app.add_option("--lock-timeout", options.lock_timeout, help(5))
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 86400).description(""));
  app.set_version_flag("--version", std::string("mdomain ") + MDOMAIN_VERSION, help(6));
}

}  // namespace

std::vector<Argument> GlobalArguments() {
  return {Option("--root", "DIR",
                 "Work below DIR instead of /: its databases, settings and, if it has an "
                 "etc/passwd, its accounts"),
          Flag("--json", "Print one JSON array or object and nothing else on standard output"),
          Flag("-v, --verbose", "Show every log line on standard error, notices too"),
          Flag("-q, --quiet",
               "Print nothing when all went well, but what was asked for; progress neither"),
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

// "domain names": the command of these words, for a message.
std::string Quoted(const std::string& words) {
  return "\"mdomain" + (words.empty() ? "" : " " + words) + "\"";
}

// "domain" and "names" give "domain names".
std::string Behind(std::string words, const std::string& word) {
  words += words.empty() ? "" : " ";
  words += word;
  return words;
}

std::string HelpFor(const std::string& words) {
  return "mdomain help" + (words.empty() ? "" : " " + words);
}

// What can stand behind `words`; empty where they are a whole command.
std::vector<std::string> WordsBehind(const std::string& words) {
  std::vector<std::string> known;
  const std::string noun = words.substr(0, words.find(' '));
  const std::string head = words == noun ? "" : words.substr(noun.size() + 1) + " ";
  const auto found = Nouns().find(noun);
  for (const Command& command :
       found == Nouns().end() ? std::vector<Command>() : found->second.commands) {
    const bool is_behind = command.words.rfind(head, 0) == 0 && command.words.size() > head.size();
    const std::string rest = is_behind ? command.words.substr(head.size()) : "";
    const std::string word = rest.substr(0, rest.find(' '));
    if (is_behind && std::count(known.begin(), known.end(), word) == 0) {
      known.push_back(word);
    }
  }
  if (words.empty()) {
    for (const auto& [name, entry] : Nouns()) {
      known.push_back(name);
    }
  }
  return known;
}

// Names a word that begins no command, and what may have been meant; or says what is missing.
void RequireKnownWords(const std::vector<const char*>& words) {
  const bool asks_for_help = std::any_of(words.begin(), words.end(), [](const char* word) {
    return std::string(word) == "--help" || std::string(word) == "-h" ||
           std::string(word) == "--version";
  });
  std::string typed;
  size_t at = FirstWord(words);
  for (std::vector<std::string> known = WordsBehind(""); !known.empty();
       known = WordsBehind(typed)) {
    const std::string word = at < words.size() ? words[at] : "";
    if (word.empty() || word[0] == '-') {
      if (asks_for_help || !word.empty()) {
        return;  // an option comes before the word: CLI11 looks
      }
      throw Failure(kUsage,
                    typed.empty() ? "a command is required"
                                  : Quoted(typed) + " is no whole command: one of " +
                                        MDOMAIN::BASE::Join(known, ", ") + " is required",
                    HelpFor(typed));
    }
    if (std::count(known.begin(), known.end(), word) == 0) {
      throw Failure(kUsage,
                    "there is no command \"" + Behind(typed, word) + "\"" + DidYouMean(word, known),
                    HelpFor(typed));
    }
    typed = Behind(typed, word);
    ++at;
  }
}

// The words of the command that was parsed as far as it went, and its options.
struct Reached {
  std::string words;
  std::vector<std::string> options;
};

Reached HowFar(const CLI::App& app) {
  Reached reached;
  for (const CLI::App* at = &app; at != nullptr;) {
    for (const CLI::Option* option : at->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        reached.options.push_back("--" + name);
      }
      for (const std::string& name : option->get_snames()) {
        reached.options.push_back("-" + name);
      }
    }
    const auto below = at->get_subcommands();
    at = below.empty() ? nullptr : below.front();
    if (at != nullptr) {
      reached.words = Behind(reached.words, at->get_name());
    }
  }
  return reached;
}

// The first option that was typed and that this command has not; empty without any.
std::string UnknownOption(const Reached& reached, int argc, const char* const* argv) {
  for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i) {
    const std::string word = argv[i];
    std::string option = word.substr(0, word.find('='));
    const bool is_long = option.size() > 2 && option.rfind("--", 0) == 0;
    if (is_long && std::count(reached.options.begin(), reached.options.end(), option) == 0) {
      return option;
    }
  }
  return "";
}

[[noreturn]] void Refuse(const CLI::App& app, const CLI::ParseError& error, int argc,
                         const char* const* argv) {
  const Reached reached = HowFar(app);
  const bool is_surplus = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
  const std::string option = is_surplus ? UnknownOption(reached, argc, argv) : "";
  throw Failure(kUsage,
                option.empty() ? error.what()
                               : Quoted(reached.words) + " has no option \"" + option + "\"" +
                                     DidYouMean(option, reached.options),
                HelpFor(reached.words));
}

Parsed ParseKnown(int argc, const char* const* argv) {
  Parsed parsed;
  CLI::App app("Manages mail domains: their names, users, groups and addresses.", "mdomain");
  app.require_subcommand(1, 1);
  app.set_help_flag("-h,--help", "Print this help");
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
    if (error.get_exit_code() != 0) {
      Refuse(app, error, argc, argv);
    }
    app.exit(error);  // help and version
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
