#include "web/model/first_come.h"

#include "web/model/calls.h"
#include "web/view/texts.h"

namespace mdomain_web {

namespace {

constexpr std::size_t kMost = 64;      // are answered at a time,
constexpr std::size_t kMostOfOne = 4;  // of these for one person
constexpr std::size_t kAllOfOne = 32;  // with those of the person that wait

}  // namespace

FirstCome::Place::Place(FirstCome& of, const std::string& person) : of_(of), person_(person) {
  std::unique_lock lock(of_.mutex_);
  OfOne& asker = of_.people_[person_];
  if (asker.answered + asker.waiting >= kAllOfOne) {
    throw CallFailed(ErrorOf("busy", Tr("Too many of your requests wait at once."),
                             Tr("This page asks again by itself.")));
  }
  ++asker.waiting;
  Waiting waiting{asker, false, {}};
  of_.waiting_.push_back(&waiting);
  of_._Call();
  waiting.called.wait(lock, [&waiting] { return waiting.begins; });
}

FirstCome::Place::~Place() {
  const std::lock_guard lock(of_.mutex_);
  const auto asker = of_.people_.find(person_);
  --of_.answered_;
  --asker->second.answered;
  if (asker->second.answered + asker->second.waiting == 0) {
    of_.people_.erase(asker);
  }
  of_._Call();
}

void FirstCome::_Call() {
  for (auto at = waiting_.begin(); at != waiting_.end() && answered_ < kMost;) {
    OfOne& person = (*at)->person;
    if (person.answered >= kMostOfOne) {
      ++at;
      continue;
    }
    --person.waiting;
    ++person.answered;
    ++answered_;
    (*at)->begins = true;
    (*at)->called.notify_one();
    at = waiting_.erase(at);
  }
}

}  // namespace mdomain_web
