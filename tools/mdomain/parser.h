// From the command line to a command of the table and its arguments.
#ifndef TOOLS_MDOMAIN_PARSER_H
#define TOOLS_MDOMAIN_PARSER_H

#include <map>
#include <string>
#include <vector>

#include "tools/mdomain/command.h"

namespace mdomain {

struct Parsed {
  GlobalOptions options;
  const Command* command = nullptr;  // null: nothing to run
  std::string words;                 // the command's own: "user add"
  std::vector<std::string> typed;    // everything, without the root and what answers questions
  std::map<std::string, std::vector<std::string>> values;
};

// Help and version go to standard output. A wrong command line is a Failure with kUsage.
Parsed Parse(int argc, const char* const* argv);

// The options that every command has, for the manual.
std::vector<Argument> GlobalArguments();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_PARSER_H
