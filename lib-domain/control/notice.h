// Telling the SMTP side whose addresses changed, without fail: the users are recorded in the
// transaction of the change, and the record goes when the marks are made
// (utils/domain_backend_related.h).
#ifndef LIB_DOMAIN_CONTROL_NOTICE_H
#define LIB_DOMAIN_CONTROL_NOTICE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace MDOMAIN::CONTROL::INTERNAL {

// Announces users, in any order, repeats allowed; nobody is no notice. All announcements of a
// BatchScope become one notice after its commit, and none when it fails; without a scope it is
// given at once. When it cannot be given that is logged, and the record stays for the next change.
// False with a log line when the users can neither be recorded nor told.
bool Announce(const std::vector<unsigned int>& uids);

// Gives one notice of everybody on record; true when there is nobody. False with log lines when a
// mark cannot be made: the record stays. One process at a time: whoever waits finds nobody.
bool SendNotices();

// While one lives, SendNotices leaves it to ForgetWith to forget the notice, which saves a
// transaction. What is on record then is given again by a run that finds it there. At the end of
// its life it is forgotten in any case.
class GivenNotice {
 public:
  GivenNotice();
  ~GivenNotice();
  GivenNotice(const GivenNotice&) = delete;
  GivenNotice& operator=(const GivenNotice&) = delete;

  // Runs `deletion` and forgets in its transaction the notice that was given, unless somebody may
  // have been recorded since: then another one is given at the end. The result of `deletion`, and
  // false with a log line when the transaction cannot be committed.
  static bool ForgetWith(const std::function<bool()>& deletion);

 private:
  friend bool SendNotices();

  bool _Send();
  void _Forget();

  GivenNotice* const outer_;
  std::optional<std::string> given_;  // the model's version when those on record were listed
  bool is_left_ = false;
};

}  // namespace MDOMAIN::CONTROL::INTERNAL

#endif  // LIB_DOMAIN_CONTROL_NOTICE_H
