// mdomain docs pages, mdomain docs markdown: the manual pages and docs/reference.md from the table
// of commands and manual.txt. The noun has no help, so neither of them has it. The build makes the
// pages, scripts/update-docs the reference.
#include <fstream>
#include <sstream>

#include "tools/mdomain/docs_text.h"
#include "tools/mdomain/parser.h"

namespace mdomain {
namespace {

void WritePage(const std::string& path, const std::string& page) {
  std::ofstream file(path);
  file << page;
  file.close();
  if (!file) {
    throw Failure(kFailed, "cannot write " + path);
  }
}

void Pages(Call& call) {
  const Manual manual = ReadManual();
  const std::string folder = call.Text("DIR");
  WritePage(folder + "/mdomain.1", ManualPage(manual, nullptr));
  for (const DocumentedNoun& noun : DocumentedNouns(manual)) {
    WritePage(folder + "/mdomain-" + noun.noun->name + ".1", ManualPage(manual, &noun));
  }
}

// Text for Markdown: what HTML would take for a tag ("<a>") is written as text.
std::string Md(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result +=
        c == '<' || c == '|' || c == '*' || c == '_' ? std::string("\\") + c : std::string(1, c);
  }
  return result;
}

void Table(std::ostream& out, const char* heading, const std::vector<Meaning>& meanings) {
  if (meanings.empty()) {
    return;
  }
  out << "\n" << heading << "\n|---|---|\n";
  for (const Meaning& meaning : meanings) {
    out << "| `" << meaning.term << "` | " << Md(meaning.text) << " |\n";
  }
}

std::vector<Meaning> Meanings(const std::vector<Argument>& arguments) {
  std::vector<Meaning> meanings;
  meanings.reserve(arguments.size());
  for (const Argument& argument : arguments) {
    meanings.push_back({ArgumentTerm(argument), argument.help});
  }
  return meanings;
}

void CommandSection(std::ostream& out, const Noun& noun, const Command& command,
                    const CommandManual& manual) {
  out << "\n### `" << Synopsis(noun, command) << "`\n\n" << Md(Description(command)) << "\n";
  Table(out, "| argument | meaning |", Meanings(command.arguments));
  Table(out, "| word of its output | meaning |", manual.words);
  out << "\nWith `--json`: " << Md(manual.json) << "\n\n```\n";
  for (const Example& example : manual.examples) {
    for (const std::string& line : example.lines) {
      if (line.rfind("$ ", 0) == 0) {
        out << line.substr(2) << "\n";
      }
    }
  }
  out << "```\n";
}

void Markdown(Call& call) {
  const Manual manual = ReadManual();
  RequireWholeManual(manual);
  std::ostringstream out;
  out << "<!-- Written by: mdomain docs markdown -->\n# mdomain, the commands\n";
  for (const std::string& paragraph : AboutMdomain()) {
    out << "\n" << Md(paragraph) << "\n";
  }
  out << "\n## Options of every command\n";
  Table(out, "| argument | meaning |", Meanings(GlobalArguments()));
  for (const DocumentedNoun& noun : DocumentedNouns(manual)) {
    out << "\n## " << noun.noun->name << "\n\n" << Md(noun.noun->help) << ".\n";
    for (const std::string& paragraph : noun.manual.about) {
      out << "\n" << Md(paragraph) << "\n";
    }
    for (const Command* command : DocumentedCommands(*noun.noun)) {
      CommandSection(out, *noun.noun, *command, noun.manual.commands.at(command->words));
    }
  }
  out << "\n## Exit status\n";
  Table(out, "| status | meaning |", ExitStatuses(nullptr));
  out << "\n## Error numbers\n\nLines of the log name them.\n";
  Table(out, "| number | meaning |", manual.numbers);
  out << "\n## Environment\n";
  Table(out, "| variable | meaning |", manual.environment);
  out << "\n## Files\n";
  Table(out, "| file | what it is |", manual.files);
  call.out().Raw(out.str());
}

// A line for each command that changes something: its words, and whether it can be tried, shows by
// itself what it would do, or says why not.
void Changing(Call& call) {
  std::vector<std::string> lines;
  for (const auto& [name, noun] : Nouns()) {
    for (const Command& command : noun.commands) {
      const bool reads = command.effect == Effect::kReads && !HasTrial(command);
      if (noun.help.empty() || command.run == nullptr || reads) {
        continue;
      }
      const std::string words = name + (command.words.empty() ? "" : " " + command.words);
      lines.push_back(words + (HasTrial(command)               ? ": tried"
                               : command.without_trial.empty() ? ": silent"
                                                               : ": told"));
    }
  }
  call.out().Texts(lines);
}

const Register kDocs({
    "docs",
    "",
    {
        {"pages", "Write the manual pages", "", Effect::kReads, {One("DIR", "Where to")}, Pages},
        {"changing", "List the changing commands", "", Effect::kReads, {}, Changing},
        {"markdown", "Print the reference", "", Effect::kReads, {}, Markdown},
    },
});

}  // namespace
}  // namespace mdomain
