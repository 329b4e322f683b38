// Whether a run wrote any database of this host.
#ifndef TOOLS_MDOMAIN_STORED_STATE_H
#define TOOLS_MDOMAIN_STORED_STATE_H

#include <string>

namespace mdomain {

// A text that changes whenever one of the databases is made, replaced, removed or written, by
// whomever. Nothing is opened through SQLite, and no lock is taken or lost.
std::string StoredState();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_STORED_STATE_H
