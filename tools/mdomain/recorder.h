// What a changing command did, for mdomain history and undo.
#ifndef TOOLS_MDOMAIN_RECORDER_H
#define TOOLS_MDOMAIN_RECORDER_H

#include <memory>

#include "lib-domain/history/recording.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/parser.h"

namespace mdomain {

// In a note, where there is something to say.
void TellInterrupted(MDOMAIN::HISTORY::Interrupted interrupted);

// Settles it under the lock where it was all or nothing, for a command that reads the model before
// it takes the lock itself.
MDOMAIN::HISTORY::Interrupted SettleInterruptedWhole(const Call& call);

class Recorder {
 public:
  // Watches nothing where the command only reads.
  explicit Recorder(const Parsed& parsed);
  // Once the lock is held: what others did before it is not this command's.
  void Begin();
  // Adds an entry where something was changed. A history that cannot be written is a warning: the
  // change is made.
  void Record() const;
  // Of a command that does all or nothing, and failed: makes everything as it was before. Whether
  // it is so now; where not, the next change tries again, and nothing is recorded.
  bool TakeBack();

 private:
  std::unique_ptr<MDOMAIN::HISTORY::Recording> recording_;
  bool is_whole_ = false;  // all or nothing
  bool has_begun_ = false;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_RECORDER_H
