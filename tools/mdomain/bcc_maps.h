// The maps of blind copies: runs their compiler; mdomain bcc maps shows what it made.
#ifndef TOOLS_MDOMAIN_BCC_MAPS_H
#define TOOLS_MDOMAIN_BCC_MAPS_H

#include <string>
#include <vector>

#include "lib-domain/api/bcc.h"
#include "tools/mdomain/command.h"

namespace mdomain {

// mdomain bcc maps.
void MakeBccMaps(Call& call);

// Whether the compiler is installed where the mail server looks for it.
bool HasMapCompiler();
// Whether the maps follow from the file that is published under this key.
bool MapsFollowFrom(const std::string& key);
// Whether one of these files is newer than the last run of the compiler, as after a run that was
// killed before it.
bool AreMapsOld();
// After rules were changed: publishes them, and makes the maps where they are used. Throws a
// Failure.
void PublishBccRules(BCC& bcc);
// Throws a Failure when the old maps stay.
void CompileMaps();
// The lines of main.cf that name the maps ("recipient_bcc_maps = hash:/path"). Makes the maps first
// where there are rules; none where there is neither a rule nor a map. Throws as CompileMaps does.
std::vector<std::string> BccMapLines();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_BCC_MAPS_H
