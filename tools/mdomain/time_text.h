// Points in time as they are shown.
#ifndef TOOLS_MDOMAIN_TIME_TEXT_H
#define TOOLS_MDOMAIN_TIME_TEXT_H

#include <string>

namespace mdomain {

// kUtc for what several machines compare: "2026-11-22T04:05:06Z". kLocal for what people did here:
// "2026-11-22T05:05:06+0100".
enum class Zone { kUtc, kLocal };

// Of seconds since 1970; empty for 0 and less.
std::string TimeText(long long seconds, Zone zone = Zone::kUtc);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_TIME_TEXT_H
