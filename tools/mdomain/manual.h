// What the manual says of a command besides its arguments: what it prints with --json, the words of
// its output, examples. It stands in manual.txt, which is built in; its head explains the lines.
#ifndef TOOLS_MDOMAIN_MANUAL_H
#define TOOLS_MDOMAIN_MANUAL_H

#include <map>
#include <string>
#include <vector>

namespace mdomain {

// A word or file, and what it means.
struct Meaning {
  std::string term;
  std::string text;
};

struct Example {
  std::string title;
  std::vector<std::string> lines;  // commands begin with "$ ", what they print follows
};

struct CommandManual {
  std::string json;
  std::vector<Meaning> words;
  std::vector<Example> examples;
};

struct NounManual {
  std::vector<std::string> about;  // paragraphs
  std::vector<Meaning> files;
  std::vector<std::string> see;                   // "host.ini(5)"
  std::map<std::string, CommandManual> commands;  // by the words below the noun
};

struct Manual {
  std::string date;                  // of the pages
  std::vector<Meaning> numbers;      // error numbers
  std::vector<Meaning> environment;  // variables
  std::vector<Meaning> files;
  std::map<std::string, NounManual> nouns;
};

// Reads the whole text: only help and the manual want it. A line that is none of the known ones is
// a Failure.
Manual ReadManual();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_MANUAL_H
