// What every target shares: the engine's entry, which hands the input over as a text, and a silent
// log. Included by the one source of a target, which defines Run.
#ifndef FUZZ_TARGET_H
#define FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/include/maillog.h"

namespace fuzz {

// Aborts, which the engine and the replay of the corpus report, unless it `holds`.
inline void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// What the target does with an input.
void Run(const std::string& input);

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  korvmailserver::SetMailLogSink([](int, const std::string&) { return true; });
  fuzz::Run(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}

#endif  // FUZZ_TARGET_H
