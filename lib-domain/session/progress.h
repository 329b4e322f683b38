// Tells Session::RefreshProgress how far the work of a turn is.
#ifndef LIB_DOMAIN_SESSION_PROGRESS_H
#define LIB_DOMAIN_SESSION_PROGRESS_H

namespace mdomain::session {

// While one lives; within a turn.
class TellingProgress {
 public:
  TellingProgress();
  ~TellingProgress();
  TellingProgress(const TellingProgress&) = delete;
  TellingProgress& operator=(const TellingProgress&) = delete;
};

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_PROGRESS_H
