// The maps for a Postfix that has no LMDB: made by its own compiler from the LMDB files, anew after
// each change of addresses, and put in the place of the old ones.
//
// A file beside the maps tells the type, and which states of the LMDB files were compiled; so a run
// that was killed is made up for by the next one.
#ifndef LIB_DOMAIN_SYNC_COMPILED_MAPS_H
#define LIB_DOMAIN_SYNC_COMPILED_MAPS_H

#include <string>
#include <vector>

#include "platform/include/export.h"
#include "platform/include/postfix_map.h"

namespace MDOMAIN::UTILS {

// The type ("hash"); the empty string where no such maps are wanted.
MDOMAIN_EXPORT std::string CompiledMapType();
// How main.cf names the map: "TYPE:PATH", of type lmdb where none are compiled.
MDOMAIN_EXPORT std::string NameOfMap(const std::string& path);

// From now on maps of this type are wanted, which CompilePostfixMaps makes. False with a log line.
MDOMAIN_EXPORT bool WantCompiledMaps(const std::string& type);
// Removes them, and from now on wants none. False with a log line.
MDOMAIN_EXPORT bool RemoveCompiledMaps();

// The addresses that such a map cannot hold: their line would be a comment.
MDOMAIN_EXPORT std::vector<std::string> ListUncompilable(
    const korvmailserver::MapEntries& addresses);

// Which of the addresses get no mail where Postfix reads maps of this type ("": of none), and why;
// the empty string when all do.
MDOMAIN_EXPORT std::string TellUncompilable(const std::string& type,
                                            const korvmailserver::MapEntries& addresses);
constexpr const char* kUncompilableCure =
    "apt-get install postfix-lmdb, then mdomain postfix configure --apply";

// Whether the LMDB files have changed since, or a compiled one is missing. False with a log line
// when it cannot be told.
bool AreCompiledMapsBehind(bool& are_behind);
// Makes those that are behind. Waits while another process does. False with a log line, and the
// maps of before in place.
MDOMAIN_EXPORT bool CompilePostfixMaps();

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_COMPILED_MAPS_H
