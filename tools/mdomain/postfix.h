// What the commands of mdomain postfix share.
#ifndef TOOLS_MDOMAIN_POSTFIX_H
#define TOOLS_MDOMAIN_POSTFIX_H

#include <string>

#include "platform/include/postfix_map.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/postfix_host.h"

namespace mdomain {

inline Argument PostfixConfigOption() {
  return Option("--config", "DIR", "The folder with main.cf; without it Postfix's own");
}

// Refuses to bring what lies below --root into the configuration of the machine itself.
void RequireOwnConfig(const Call& call);

// Makes the maps, on a machine that pulls too. Throws a Failure when those of before stay.
void MakePostfixMaps();

// The type of maps that this Postfix is to read: "lmdb", else one that it compiles; the empty
// string when it has none.
std::string MapTypeFor(const PostfixHost& host);

// A warning on standard error, of this command itself.
void Warn(const std::string& text);

// Warns of addresses that get no mail where Postfix reads maps of this type.
void WarnOfUncompiled(const std::string& type, const korvmailserver::MapEntries& addresses);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_POSTFIX_H
