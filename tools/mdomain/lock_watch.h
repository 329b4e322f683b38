// What begins with the lock of changes: before it, others may still change something.
#ifndef TOOLS_MDOMAIN_LOCK_WATCH_H
#define TOOLS_MDOMAIN_LOCK_WATCH_H

#include <functional>

namespace mdomain {

// Is called whenever a command has got the lock, before it changes anything; empty: nothing is. Of
// this process.
std::function<void()>& WhenLocked();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LOCK_WATCH_H
