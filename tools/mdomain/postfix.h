// What the commands of mdomain postfix share.
#ifndef TOOLS_MDOMAIN_POSTFIX_H
#define TOOLS_MDOMAIN_POSTFIX_H

#include "tools/mdomain/command.h"

namespace mdomain {

inline Argument PostfixConfigOption() {
  return Option("--config", "DIR", "The folder with main.cf; without it Postfix's own");
}

// Refuses to bring what lies below --root into the configuration of the machine itself.
void RequireOwnConfig(const Call& call);

// Makes the maps, on a machine that pulls too. Throws a Failure when those of before stay.
void MakePostfixMaps();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_POSTFIX_H
