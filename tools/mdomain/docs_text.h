// What the manual pages and the reference have in common.
#ifndef TOOLS_MDOMAIN_DOCS_TEXT_H
#define TOOLS_MDOMAIN_DOCS_TEXT_H

#include <string>
#include <vector>

#include "tools/mdomain/command.h"
#include "tools/mdomain/manual.h"

namespace mdomain {

// The paragraphs about mdomain as a whole.
std::vector<std::string> AboutMdomain();

// Exit statuses; of a noun only those with which its commands may end. Null: all.
std::vector<Meaning> ExitStatuses(const Noun* noun);

// "--alias ALIAS"
std::string ArgumentTerm(const Argument& argument);

// "mdomain user set DOMAIN USER [--role ROLE]": what must be given stands first.
std::string Synopsis(const Noun& noun, const Command& command);

// Help and detail, as sentences.
std::string Description(const Command& command);

// The nouns that are documented, with their manual; an empty one where manual.txt has none.
struct DocumentedNoun {
  const Noun* noun;
  NounManual manual;
};
std::vector<DocumentedNoun> DocumentedNouns(const Manual& manual);

// A Failure where a command has no example, and where one is explained that there is not.
void RequireWholeManual(const Manual& manual);

// The commands of a noun, without headings.
std::vector<const Command*> DocumentedCommands(const Noun& noun);

// The manual page of a noun, or of mdomain for null.
std::string ManualPage(const Manual& manual, const DocumentedNoun* noun);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOCS_TEXT_H
