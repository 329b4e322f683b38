// mdomain docs man, mdomain docs markdown: the manual page and docs/reference.md from the table of
// commands. The noun has no help, so neither of them has it. scripts/update-docs writes both.
#include <sstream>

#include "tools/mdomain/command.h"
#include "tools/mdomain/parser.h"

namespace mdomain {
namespace {

constexpr const char* kAbout =
    "Manages the mail domains of a host: their names, which users and groups of the account system "
    "belong to them, and under which addresses. The model lives in one database; every change is "
    "published to the key store, from which the mail services read it.";

constexpr const char* kNaming =
    "A domain is named by its index or by any of its names, in UTF-8 or in punycode. Users and "
    "groups are named by their name, with or without the directory's part, or by their id.";

constexpr const char* kOutput =
    "Every listing has --json: one array or object on standard output and nothing else there, with "
    "the same field names in every version. Log lines, questions and progress go to standard "
    "error. Commands that remove something ask first on a terminal and need --yes elsewhere.";

constexpr const char* kLocking =
    "While a command changes anything it holds a lock file, so that two runs on one root never "
    "overlap: the second waits, says so, and gives up after --lock-timeout.";

struct Row {
  const char* term;
  const char* text;
};

constexpr Row kStatuses[] = {
    {"0", "Done."},
    {"1", "Failed. The lines on standard error say why."},
    {"2", "Wrong usage: arguments, host settings, or a question that nobody can answer."},
    {"3", "Refused: a duplicate, an invalid value, the primary domain. Nothing was changed."},
    {"4", "Not found: the domain, user, group or key. Nothing was changed."},
    {"5",
     "Spared: a refresh did everything but delete, because more accounts are gone than its limit "
     "allows."},
    {"6",
     "Unpublished: the change was made on this machine, and the key store that other machines read "
     "has not got it yet. mdomain publish or the next change brings it there."},
};

constexpr Row kFiles[] = {
    {"/var/packages/Postara-Server/etc/local_DOMAIN.db",
     "The domain database for local accounts. With a directory, its domain name stands in place of "
     "local."},
    {"/var/packages/Postara-Server/etc/mailserver.db", "Settings and BCC rules per domain."},
    {"/var/packages/Postara-Server/target/etc/email_owner.db", "The registry of address owners."},
    {"/var/packages/Postara-Server/target/etc/postfix_domains.lmdb, postfix_addresses.lmdb",
     "The maps that Postfix reads; where it has no LMDB, those that it compiles from them stand "
     "beside them."},
    {"/etc/mailserver-domain/host.ini",
     "Host settings: key store, directory, Windows domain, local accounts."},
    {"/var/run/postara_server/mdomain.lock", "The lock file."},
};

std::string Placeholder(const Argument& argument) {
  switch (argument.kind) {
    case Kind::kOne:
      return argument.name;
    case Kind::kOptional:
      return "[" + argument.name + "]";
    case Kind::kMany:
      return argument.name + "...";
    case Kind::kAny:
      return "[" + argument.name + "...]";
    case Kind::kFlag:
      return "[" + argument.name + "]";
    case Kind::kRepeated:
      return "[" + argument.name + " " + argument.value + "]...";
    default:
      return "[" + argument.name + " " + argument.value + "]";
  }
}

std::string Term(const Argument& argument) {
  return argument.name + (argument.value.empty() ? "" : " " + argument.value);
}

bool IsPositional(const Argument& argument) {
  return argument.name[0] != '-';
}

// "mdomain user set DOMAIN USER [--role ROLE]": what must be given stands first.
std::string Synopsis(const Noun& noun, const Command& command) {
  std::string text = "mdomain " + noun.name + (command.words.empty() ? "" : " " + command.words);
  for (const bool positional : {true, false}) {
    for (const Argument& argument : command.arguments) {
      if (IsPositional(argument) == positional) {
        text += " " + Placeholder(argument);
      }
    }
  }
  return text;
}

// Calls `use(noun, command)` for everything that is documented; `begin(noun)` before each noun.
template <typename Begin, typename Use>
void ForEachCommand(Begin begin, Use use) {
  for (const auto& [name, noun] : Nouns()) {
    if (noun.help.empty()) {
      continue;
    }
    begin(noun);
    for (const Command& command : noun.commands) {
      if (command.run != nullptr) {
        use(noun, command);
      }
    }
  }
}

// Text for the manual page: a hyphen is written as a minus, and no line begins as a request.
std::string Roff(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result += c == '-' ? "\\-" : c == '\\' ? "\\e" : std::string(1, c);
  }
  return result.empty() || (result[0] != '.' && result[0] != '\'') ? result : "\\&" + result;
}

void RoffItem(std::ostream& out, const std::string& term, const std::string& text) {
  out << ".TP\n.B " << Roff(term) << "\n" << Roff(text) << "\n";
}

void Man(Call& call) {
  std::ostringstream out;
  out << ".\\\" Written by: mdomain docs man\n"
      << ".TH MDOMAIN 1 \"\" \"mailserver\\-domain " << Roff(MDOMAIN_VERSION) << "\"\n"
      << ".SH NAME\nmdomain \\- manage mail domains, their users and their addresses\n"
      << ".SH SYNOPSIS\n.B mdomain\n[OPTIONS] COMMAND ...\n"
      << ".SH DESCRIPTION\n"
      << Roff(kAbout) << "\n.PP\n"
      << Roff(kNaming) << "\n.PP\n"
      << Roff(kOutput) << "\n.PP\n"
      << Roff(kLocking) << "\n.SH OPTIONS\n";
  for (const Argument& argument : GlobalArguments()) {
    RoffItem(out, Term(argument), argument.help);
  }
  out << ".SH COMMANDS\n";
  ForEachCommand(
      [&](const Noun& noun) { out << ".SS " << Roff(noun.name + ": " + noun.help) << "\n"; },
      [&](const Noun& noun, const Command& command) {
        RoffItem(out, Synopsis(noun, command),
                 command.help + "." + (command.detail.empty() ? "" : " " + command.detail));
        out << ".RS\n";
        for (const Argument& argument : command.arguments) {
          RoffItem(out, Term(argument), argument.help);
        }
        out << ".RE\n";
      });
  out << ".SH EXIT STATUS\n";
  for (const Row& row : kStatuses) {
    RoffItem(out, row.term, row.text);
  }
  out << ".SH ENVIRONMENT\n";
  RoffItem(out, "MDOMAIN_ROOT", "The same as --root, which wins.");
  out << ".SH FILES\n";
  for (const Row& row : kFiles) {
    RoffItem(out, row.term, row.text);
  }
  call.out().Raw(out.str());
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

void MdTable(std::ostream& out, const std::vector<Argument>& arguments) {
  if (arguments.empty()) {
    return;
  }
  out << "\n| argument | meaning |\n|---|---|\n";
  for (const Argument& argument : arguments) {
    out << "| `" << Term(argument) << "` | " << Md(argument.help) << " |\n";
  }
}

void MdRows(std::ostream& out, const char* title, const Row* begin, const Row* end) {
  out << "\n## " << title << "\n\n|  |  |\n|---|---|\n";
  for (const Row* row = begin; row != end; ++row) {
    out << "| `" << row->term << "` | " << Md(row->text) << " |\n";
  }
}

void Markdown(Call& call) {
  std::ostringstream out;
  out << "<!-- Written by: mdomain docs markdown -->\n"
      << "# mdomain, the commands\n\n"
      << Md(kAbout) << "\n\n"
      << Md(kNaming) << "\n\n"
      << Md(kOutput) << "\n\n"
      << Md(kLocking) << "\n\n## Options of every command\n";
  MdTable(out, GlobalArguments());
  ForEachCommand(
      [&](const Noun& noun) { out << "\n## " << noun.name << "\n\n"
                                  << Md(noun.help) << ".\n"; },
      [&](const Noun& noun, const Command& command) {
        out << "\n### `" << Synopsis(noun, command) << "`\n\n"
            << Md(command.help) << "." << (command.detail.empty() ? "" : " " + Md(command.detail))
            << "\n";
        MdTable(out, command.arguments);
      });
  MdRows(out, "Exit status", std::begin(kStatuses), std::end(kStatuses));
  MdRows(out, "Files", std::begin(kFiles), std::end(kFiles));
  call.out().Raw(out.str());
}

// A line for each command that changes something: its words, and whether it can be tried, shows by
// itself what it would do, or says why not.
void Changing(Call& call) {
  std::vector<std::string> lines;
  ForEachCommand([](const Noun&) {},
                 [&](const Noun& noun, const Command& command) {
                   const bool reads = command.effect == Effect::kReads && !HasTrial(command);
                   if (!reads) {
                     const std::string words =
                         noun.name + (command.words.empty() ? "" : " " + command.words);
                     lines.push_back(words + (HasTrial(command)               ? ": tried"
                                              : command.without_trial.empty() ? ": silent"
                                                                              : ": told"));
                   }
                 });
  call.out().Texts(lines);
}

const Register kDocs({
    "docs",
    "",
    {
        {"man", "Print the manual page", "", Effect::kReads, {}, Man},
        {"changing", "List the changing commands", "", Effect::kReads, {}, Changing},
        {"markdown", "Print the reference", "", Effect::kReads, {}, Markdown},
    },
});

}  // namespace
}  // namespace mdomain
