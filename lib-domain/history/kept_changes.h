// Changes as bytes, for the history.
#ifndef LIB_DOMAIN_HISTORY_KEPT_CHANGES_H
#define LIB_DOMAIN_HISTORY_KEPT_CHANGES_H

#include <string>

#include "lib-domain/history/model_changes.h"

namespace MDOMAIN::HISTORY {

// Databases by their names alone: they lie in one folder. `model` is the name of the model file in
// force.
std::string ToBytes(const Changes& changes, const std::string& model);
// The same with `folder` before the names. False where the bytes are no changes.
bool FromBytes(const std::string& bytes, const std::string& folder, Changes& changes,
               std::string& model);

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_KEPT_CHANGES_H
