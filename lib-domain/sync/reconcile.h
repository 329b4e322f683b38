// Bringing everything that follows from the model in line with it, after each change.
//
// What stands outside the domain database cannot be changed in one transaction with it. A run that
// is killed, or a step that fails, leaves something behind or something missing. This step finds
// and mends it: a list of items, each of which can tell what differs and can make it right. It is
// idempotent, and cheap when nothing differs: a few statements and folder listings per item,
// however many users there are.
//
// A model without domains may be one that was lost: then nothing is removed. Nor is anything where
// the account source was switched and the settings belong to another model's domains.
#ifndef LIB_DOMAIN_SYNC_RECONCILE_H
#define LIB_DOMAIN_SYNC_RECONCILE_H

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

enum class ReconcileScope {
  kEachChange,  // what every change checks
  kFull,        // refresh and publish: also what costs as much as the model is big
};

struct ReconcileModel {
  std::vector<int> domain_idxs;  // ascending
  bool has_primary = false;
  // What stands under indexes belongs to the domains of another model file.
  bool are_settings_foreign = false;

  bool Has(int domain_idx) const {
    return std::binary_search(domain_idxs.begin(), domain_idxs.end(), domain_idx);
  }
};

// One way in which something differs, for a person.
using Differences = std::vector<std::string>;

struct ReconcileItem {
  std::string name;
  std::string place;  // the file, folder or store that it is about
  ReconcileScope scope;
  // Adds what differs; reads only. False when it cannot be told, with a log line.
  std::function<bool(const ReconcileModel&, Differences&)> list;
  // Makes it right; called when something differs. False when something is left, with a log line.
  std::function<bool(const ReconcileModel&)> mend;
  // `list` reads the domain database and whatever stands still meanwhile, and writes nothing: it
  // may be asked together with the others, before them all.
  bool lists_model = false;
  // A failure is told although the key store is not healthy: nobody else would find what is left.
  bool is_urgent = false;
};

// The items in the order in which they run.
MDOMAIN_EXPORT std::vector<ReconcileItem> ReconcileItems();

// False with a log line when the database cannot be read.
MDOMAIN_EXPORT bool ReadReconcileModel(ReconcileModel& model);

enum class ReconcileResult {
  kNothingToDo,
  kMended,  // something was changed, and is to be published
  kFailed,  // an item failed; the others have run
};

// Runs the items of the scope. An item that fails is one log line that names it, and the next one
// runs all the same. While the key store is not healthy its failures are put off with a warning:
// the next change finds what is left.
ReconcileResult Reconcile(ReconcileScope scope);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_RECONCILE_H
