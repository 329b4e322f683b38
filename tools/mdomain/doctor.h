// What mdomain doctor looks at. Checks read only.
#ifndef TOOLS_MDOMAIN_DOCTOR_H
#define TOOLS_MDOMAIN_DOCTOR_H

#include <string>
#include <vector>

namespace mdomain {

struct Finding {
  std::string id;         // of the check: "database", "postmaster"; one of the table in doctor.cpp
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
// What names are published and stand in the model, its roles, the disclaimers and DKIM keys of its
// domains.
void CheckRules(Findings& findings);
// What a refresh would bring.
void CheckAccounts(Findings& findings);
// The programs, the timer and the part of this host; an undo that has not ended.
void CheckHost(Findings& findings);

// Whether the model file is there, of this program's version and can be named, so that looking at
// the model changes nothing. Adds the finding where it is not, but the one about a version, which
// CheckFiles has.
bool IsModelUsable(Findings& findings);
// The model file; empty where it cannot be named.
std::string ModelPath();
// The id of a finding of the reconcile item with that name: "settings of domains" gives
// "settings-of-domains".
std::string IdOf(std::string name);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DOCTOR_H
