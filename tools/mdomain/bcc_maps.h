// mdomain bcc maps: runs the map compiler and shows what it made.
#ifndef TOOLS_MDOMAIN_BCC_MAPS_H
#define TOOLS_MDOMAIN_BCC_MAPS_H

#include "tools/mdomain/command.h"

namespace mdomain {

void MakeBccMaps(Call& call);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_BCC_MAPS_H
