// What mdomain doctor looks at. Checks read only.
#ifndef TOOLS_MDOMAIN_DOCTOR_H
#define TOOLS_MDOMAIN_DOCTOR_H

#include <string>
#include <vector>

namespace mdomain {

struct Finding {
  std::string id;         // of the check: "database", "postmaster"; the manual has it
  bool is_error = false;  // else it may be meant so
  std::string text;       // a sentence that names what is wrong and where
  std::string cure;       // the command that mends it; empty: "mdomain doctor --repair"
};

using Findings = std::vector<Finding>;

// The files: whole, of a known version, owned and closed as they should be, nothing left over.
void CheckFiles(Findings& findings);
// What stands outside the model and follows from it.
void CheckReconciled(Findings& findings);
// The model itself, and rules that reach nobody.
void CheckModel(Findings& findings);
// The accounts and what a refresh would bring; the programs and the timer of this host.
void CheckHost(Findings& findings);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOCTOR_H
