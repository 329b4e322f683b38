// What is said on standard error besides the answer and the message that a command fails with.
#ifndef TOOLS_MDOMAIN_NOTES_H
#define TOOLS_MDOMAIN_NOTES_H

#include <string>
#include <vector>

namespace mdomain {

// A line, behind the name of the program.
void Note(const std::string& text);

// From now on notes wait: with --json what a failing command says is one object, and they are in
// it.
void KeepNotes();
// The notes that wait, which are then shown no more.
std::vector<std::string> TakeNotes();
// Shows those that wait, and later ones at once.
void ShowNotes();

// A line that tells what is going on, until the next one or until anything else is shown.
void ShowStatus(const std::string& text);
void ClearStatus();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_NOTES_H
