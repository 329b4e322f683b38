// Refusals where the model in force is not the one whose domains are published: another account
// domain's, a lost file, or older settings that nobody has taken over yet.
#ifndef TOOLS_MDOMAIN_MODEL_H
#define TOOLS_MDOMAIN_MODEL_H

#include <string>

#include "tools/mdomain/command.h"

namespace mdomain {

// --force of the commands below. `what` is what it does there.
inline Argument ForceFlag(const std::string& what) {
  return Flag("--force", what);
}

// Refuses, without --force, to publish where that would empty what is published.
void RequirePublishable(const Call& call);

// Why a refresh without --force reads the accounts and publishes nothing: the account source was
// switched, and its model has no domain yet. Empty where it publishes.
std::string WhyOnlyMirrored(const Call& call);

// Refuses, without --force, to create a domain in a lost model, or where the settings under domain
// indexes belong to another model's domains; with it, removes those.
void RequireOwnModel(const Call& call);

// Refuses to work with the settings under domain indexes where they are those of another model's
// domains. `advice` is what to do but setting the source back.
void RequireOwnSettings(
    const std::string& advice = "have them removed with mdomain publish --force");

// The same, and finishes first what those who left keep: a new rule for a namesake would go with
// theirs.
void RequireSettledSettings();

// Removes them there.
void DiscardForeignSettings();

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_MODEL_H
