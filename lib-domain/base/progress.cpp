#include "lib-domain/base/progress.h"

#include <utility>

namespace MDOMAIN::BASE {

namespace {

ProgressListener& Listener() {
  static auto& listener = *new ProgressListener();
  return listener;
}

}  // namespace

void ListenToProgress(ProgressListener listener) {
  Listener() = std::move(listener);
}

void Progress::_Tell() const {
  if (Listener()) {
    Listener()(doing_, done_, total_);
  }
}

}  // namespace MDOMAIN::BASE
