// A document takes the place of the model: what mdomain export, apply and edit share.
#ifndef TOOLS_MDOMAIN_APPLY_H
#define TOOLS_MDOMAIN_APPLY_H

#include <string>

#include "lib-domain/document/problem.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/log_view.h"

namespace mdomain {

// For somebody who waits, until the next one.
Progress ShownWork(const Call& call, const char* doing);

// Runs work on documents; a problem that it ends with ends the command.
template <typename Work>
auto WithDocuments(const Work& work) {
  using MDOMAIN::DOCUMENT::Problem;
  try {
    return work();
  } catch (const Problem& problem) {
    throw Failure(problem.kind == Problem::kRefused       ? kRefused
                  : problem.kind == Problem::kUnpublished ? kUnpublished
                                                          : kFailed,
                  problem.what());
  }
}

// The document of the model as it is stored.
std::string ExportedText(const Call& call);

// What a document would change.
struct DocumentPlan {
  bool differs = false;
  Json::Value changes = Json::Value(Json::arrayValue);  // as a dry run lists them
  std::string summary;                                  // the first of them, for a question
  std::string before;  // StoredState of the model that it was made for
};

// Checks the document and tries it on copies; throws the Failure it is refused with. `before` was
// StoredState when whoever asks looked at the model.
DocumentPlan PlanDocument(const Call& call, const std::string& text, const std::string& before);

// Asks, takes the lock and makes it so; nothing where the document does not differ. Refused when
// the model is not that of the plan any more.
void CarryOut(Call& call, const std::string& text, const DocumentPlan& plan,
              const std::string& question);

// What the plan has, and that it was made, or with `is_done` unset that it would be.
void PrintPlan(Output& out, const DocumentPlan& plan, bool is_done);

// Refuses where the settings under domain indexes are not of the model in force.
void RequireReadyModel(const Call& call);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_APPLY_H
