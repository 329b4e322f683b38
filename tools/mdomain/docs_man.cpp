// Manual pages: mdomain(1) is the overview, mdomain-NOUN(1) has the commands of a noun.
#include <algorithm>
#include <sstream>

#include "tools/mdomain/docs_text.h"
#include "tools/mdomain/parser.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

// Text for a manual page: a hyphen is written as a minus, what is not ASCII by its number, and no
// line begins as a request.
std::string Roff(const std::string& text) {
  std::string result;
  ForEachCharacter(text, [&](char32_t character, size_t start, size_t length) {
    if (character == '-') {
      result += "\\-";
    } else if (character == '\\') {
      result += "\\e";
    } else if (character < 128) {
      result += text.substr(start, length);
    } else {
      char number[16];
      snprintf(number, sizeof number, "\\[u%04X]", static_cast<unsigned int>(character));
      result += number;
    }
  });
  return result.empty() || (result[0] != '.' && result[0] != '\'') ? result : "\\&" + result;
}

void Item(std::ostream& out, const std::string& term, const std::string& text) {
  out << ".TP\n.B " << Roff(term) << "\n" << Roff(text) << "\n";
}

void Items(std::ostream& out, const char* title, const std::vector<Meaning>& meanings) {
  out << ".SH " << title << "\n";
  for (const Meaning& meaning : meanings) {
    Item(out, meaning.term, meaning.text);
  }
}

std::string PageName(const Noun* noun) {
  return noun == nullptr ? "mdomain" : "mdomain-" + noun->name;
}

void Title(std::ostream& out, const Manual& manual, const Noun* noun, const std::string& about) {
  std::string heading = PageName(noun);
  std::transform(heading.begin(), heading.end(), heading.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  out << ".\\\" Written by: mdomain docs pages\n"
      << ".TH " << Roff(heading) << " 1 \"" << manual.date << "\" \"mailserver\\-domain "
      << Roff(MDOMAIN_VERSION) << "\"\n"
      << ".SH NAME\n"
      << Roff(PageName(noun)) << " \\- " << Roff(about) << "\n.SH SYNOPSIS\n";
}

void Paragraphs(std::ostream& out, const std::vector<std::string>& paragraphs) {
  for (size_t i = 0; i < paragraphs.size(); ++i) {
    out << (i == 0 ? "" : ".PP\n") << Roff(paragraphs[i]) << "\n";
  }
}

void Lines(std::ostream& out, const std::vector<std::string>& lines) {
  out << ".EX\n";
  for (const std::string& line : lines) {
    out << Roff(line) << "\n";
  }
  out << ".EE\n";
}

void CommandSection(std::ostream& out, const Noun& noun, const Command& command,
                    const CommandManual& manual) {
  out << ".SS " << Roff(noun.name + (command.words.empty() ? "" : " ") + command.words) << "\n"
      << ".B " << Roff(Synopsis(noun, command)) << "\n.PP\n"
      << Roff(Description(command)) << "\n";
  for (const Argument& argument : command.arguments) {
    Item(out, ArgumentTerm(argument), argument.help);
  }
  if (!manual.words.empty()) {
    out << ".PP\nWords of its output:\n";
    for (const Meaning& word : manual.words) {
      Item(out, word.term, word.text);
    }
  }
  out << ".PP\nWith \\-\\-json: " << Roff(manual.json) << "\n";
}

void Examples(std::ostream& out, const DocumentedNoun& noun) {
  out << ".SH EXAMPLES\n";
  const char* gap = "";
  for (const Command* command : DocumentedCommands(*noun.noun)) {
    for (const Example& example : noun.manual.commands.at(command->words).examples) {
      out << gap << Roff(example.title) << (example.title.back() == '?' ? "" : ":") << "\n.PP\n";
      gap = ".PP\n";
      Lines(out, example.lines);
    }
  }
}

void SeeAlso(std::ostream& out, std::vector<std::string> pages) {
  out << ".SH SEE ALSO\n";
  for (size_t i = 0; i < pages.size(); ++i) {
    const size_t section = pages[i].find('(');
    out << ".BR " << Roff(pages[i].substr(0, section)) << " " << pages[i].substr(section)
        << (i + 1 < pages.size() ? " ," : "") << "\n";
  }
}

// "The mail domains" as it stands behind the name of a page.
std::string Lowered(const std::string& help) {
  const bool is_word = help.size() > 1 && std::islower(static_cast<unsigned char>(help[1])) != 0;
  const bool is_name = help.rfind("Postfix", 0) == 0 || help.rfind("Dovecot", 0) == 0;
  return is_word && !is_name
             ? static_cast<char>(std::tolower(static_cast<unsigned char>(help[0]))) + help.substr(1)
             : help;
}

std::string NounPage(const Manual& manual, const DocumentedNoun& noun) {
  std::ostringstream out;
  Title(out, manual, noun.noun, Lowered(noun.noun->help));
  const std::vector<const Command*> commands = DocumentedCommands(*noun.noun);
  for (size_t i = 0; i < commands.size(); ++i) {
    out << (i == 0 ? "" : ".br\n") << ".B " << Roff(Synopsis(*noun.noun, *commands[i])) << "\n";
  }
  out << ".SH DESCRIPTION\n";
  std::vector<std::string> about = noun.manual.about;
  about.push_back(
      "Options of every command, how domains, users and groups are named, and error numbers stand "
      "in mdomain(1).");
  Paragraphs(out, about);
  out << ".SH COMMANDS\n";
  for (const Command* command : commands) {
    CommandSection(out, *noun.noun, *command, noun.manual.commands.at(command->words));
  }
  Items(out, "EXIT STATUS", ExitStatuses(noun.noun));
  std::vector<Meaning> files = noun.manual.files;
  files.insert(files.end(), manual.files.begin(), manual.files.begin() + 2);
  Items(out, "FILES", files);
  Examples(out, noun);
  std::vector<std::string> see = {"mdomain(1)"};
  see.insert(see.end(), noun.manual.see.begin(), noun.manual.see.end());
  SeeAlso(out, see);
  return out.str();
}

std::string Overview(const Manual& manual) {
  std::ostringstream out;
  Title(out, manual, nullptr, "manage mail domains, their users and their addresses");
  out << ".B mdomain\n[OPTIONS] COMMAND ...\n.SH DESCRIPTION\n";
  Paragraphs(out, AboutMdomain());
  out << ".SH OPTIONS\n";
  for (const Argument& argument : GlobalArguments()) {
    Item(out, ArgumentTerm(argument), argument.help);
  }
  out << ".SH COMMANDS\nEach has a page of its own, and mdomain help COMMAND tells its words.\n";
  std::vector<std::string> see;
  for (const DocumentedNoun& noun : DocumentedNouns(manual)) {
    see.push_back(PageName(noun.noun) + "(1)");
    out << ".TP\n.BR " << Roff(PageName(noun.noun)) << " (1)\n" << Roff(noun.noun->help) << ".\n";
  }
  Items(out, "EXIT STATUS", ExitStatuses(nullptr));
  out << ".SH ERROR NUMBERS\nLines of the log name a number, as in \"FILE:LINE (4009) failed to "
         "execute select query: ...\".\n";
  for (const Meaning& number : manual.numbers) {
    Item(out, number.term, number.text);
  }
  Items(out, "ENVIRONMENT", manual.environment);
  Items(out, "FILES", manual.files);
  see.insert(see.end(), {"host.ini(5)", "libmailserver-domain(3)"});
  SeeAlso(out, see);
  return out.str();
}

}  // namespace

std::string ManualPage(const Manual& manual, const DocumentedNoun* noun) {
  return noun == nullptr ? Overview(manual) : NounPage(manual, *noun);
}

}  // namespace mdomain
