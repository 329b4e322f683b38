// What killed runs left behind.
#ifndef TOOLS_MDOMAIN_LEFTOVERS_H
#define TOOLS_MDOMAIN_LEFTOVERS_H

namespace mdomain {

// Removes half-made files and folders of runs that were killed from the folders of the mail server.
// What a running process makes is left alone. Failures are passed over.
void RemoveAllLeftovers();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_LEFTOVERS_H
