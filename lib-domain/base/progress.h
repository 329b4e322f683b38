// How far a pass over many items is, for a program that shows it to somebody who waits.
#ifndef LIB_DOMAIN_BASE_PROGRESS_H
#define LIB_DOMAIN_BASE_PROGRESS_H

#include <cstddef>
#include <functional>

#include "platform/include/export.h"

namespace MDOMAIN::BASE {

// What is being done ("writing rows"), and with how many items of how many it is done; of 0 where
// nobody knows how many there will be.
using ProgressListener = std::function<void(const char* doing, size_t done, size_t total)>;

// From now on passes of this process tell the listener; an empty one ends that. It is called once
// for some thousand items, in the middle of the pass: it must not use this library.
MDOMAIN_EXPORT void ListenToProgress(ProgressListener listener);

// One pass. Counting costs an addition, telling nothing while nobody listens.
class Progress {
 public:
  // `doing` must outlive the pass.
  Progress(const char* doing, size_t total) : doing_(doing), total_(total) {}
  void Step() {
    if (++done_ % kStep == 0) {
      _Tell();
    }
  }

 private:
  MDOMAIN_EXPORT void _Tell() const;

  static constexpr size_t kStep = 1000;
  const char* doing_;
  size_t total_;
  size_t done_ = 0;
};

}  // namespace MDOMAIN::BASE

#endif  // LIB_DOMAIN_BASE_PROGRESS_H
