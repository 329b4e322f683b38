// One call of a session: its turn among the threads and programs, what it logs, and how it ends.
#ifndef LIB_DOMAIN_SESSION_TURN_H
#define LIB_DOMAIN_SESSION_TURN_H

#include <cxxabi.h>

#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lib-domain/base/error_code.h"
#include "lib-domain/history/recording.h"
#include "lib-domain/session/mdomain.hpp"

namespace MDOMAIN::DB {
class ReadScope;
}
namespace MDOMAIN::UTILS {
class ChangeLock;
}

namespace mdomain {

struct SessionState {
  Session::Options options;
  std::optional<std::uint32_t> administrator;
};

struct SessionAccess {
  static const SessionState& StateOf(const Session& session) { return *session.state_; }
  static Session With(const SessionState& state) {
    Session session;
    session.state_ = std::make_shared<const SessionState>(state);
    return session;
  }
};

namespace session {

// Ends the work of a call with an error.
class Stop : public std::exception {
 public:
  explicit Stop(Error cause) : error(std::move(cause)) {}
  const char* what() const noexcept override { return error.text.c_str(); }

  Error error;
};

// Ends the call for a domain administrator; `what` says what is not his to do.
void RequireHost(const Session& session, const std::string& what);

[[noreturn]] void Refuse(Reason reason, const std::string& text, const std::string& advice = "");
// For a call of the described classes that was false.
[[noreturn]] void Fail(const std::string& text);

// The error behind an exception that ended a call.
Error ErrorOf(const korvmailserver::LogException& exception);

// Within a dry run, with the files in the place of their copies.
Error AsShown(Error error);

// While one lives, this thread has the library to itself, and what is logged is gathered. Turns
// within a turn of the same thread are part of it.
class Turn {
 public:
  explicit Turn(const Session& session);
  virtual ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  // Warnings and errors so far; none for a domain administrator, as they name what is others'.
  std::vector<std::string> TakeLog();
  // Takes back what was changed. What is still there, or the empty string.
  virtual std::string GiveUp() { return ""; }
  // Waits for other programs; other threads may read meanwhile. Not within another turn.
  void TakeLock(MDOMAIN::UTILS::ChangeLock& lock);

 protected:
  const SessionState& state_;

 private:
  void _LetOthers(std::chrono::milliseconds moment);
  void _Gather();

  std::unique_lock<std::recursive_mutex> lock_;
  std::shared_ptr<struct GatheredLog> log_;
};

// Stands behind what failed where taking back did, too.
constexpr const char* kNotTakenBack = "; what was done before that is still there";

// Refreshes, repairs and undoing are taken back neither by an undo nor where they fail: the next
// one goes on with what is done.
using ChangeKind = MDOMAIN::HISTORY::EntryKind;

// What a change needs to be as it should: all, or for what mends that, nothing but the lock.
enum class Needs { kModel, kNothing };

std::string PersonOf(const SessionState& state);  // whom the history names
// They end the call where this machine or this model may not be changed now.
void RequireManager();
void RequireOwnModel();
// How many changing turns the thread that holds the mutex is in.
int& Depth();

// A turn that changes something: holds the lock file, keeps publications back and watches what is
// changed. The outermost one of a thread ends with Finish, or takes everything back.
class ChangingTurn : public Turn {
 public:
  explicit ChangingTurn(const Session& session);
  ~ChangingTurn() override;

  // Waits for other programs; other threads may read meanwhile. Ends the call where this machine or
  // this model may not be changed now, or the caller is no administrator of any domain.
  void Begin(const std::string& command, ChangeKind kind, Needs needs);
  // Publishes, and writes the history. Why it was not published, or the empty string.
  std::string Finish();
  std::string GiveUp() override;

 private:
  struct Work;

  std::unique_ptr<Work> work_;  // of the outermost
  bool has_begun_ = false;
};

template <typename T, typename Work>
Result<T> Guarded(const std::unique_ptr<Turn>& turn, const Work& work) {
  Error error;
  try {
    return work();
  } catch (const Stop& stop) {
    error = stop.error;
  } catch (const korvmailserver::LogException& exception) {
    error = ErrorOf(exception);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& exception) {
    error.text = exception.what();
  } catch (const abi::__forced_unwind&) {
    throw;  // the thread is cancelled
  } catch (...) {
    error.text = "what was thrown is no std::exception";
  }
  if (turn) {
    error.text += turn->GiveUp();
    error.log = turn->TakeLog();
  }
  return AsShown(std::move(error));
}

template <typename T, typename Work>
Result<T> Read(const Session& session, const Work& work) {
  std::unique_ptr<Turn> turn;
  return Guarded<T>(turn, [&]() -> Result<T> {
    turn = std::make_unique<Turn>(session);
    return work();
  });
}

// While one lives, what is read of the model is of one moment, the caller's rights included.
class OneMoment {
 public:
  OneMoment();
  ~OneMoment();
  OneMoment(const OneMoment&) = delete;
  OneMoment& operator=(const OneMoment&) = delete;

 private:
  std::unique_ptr<MDOMAIN::DB::ReadScope> scope_;
};

// For what asks nobody but the databases: writers wait for its end.
template <typename T, typename Work>
Result<T> ReadModel(const Session& session, const Work& work) {
  return Read<T>(session, [&]() -> Result<T> {
    const OneMoment moment;
    return work();
  });
}

// `command` is what the history calls it.
template <typename T, typename Work>
Result<T> Change(const Session& session, const std::string& command, const Work& work,
                 ChangeKind kind = ChangeKind::kChange, Needs needs = Needs::kModel) {
  std::unique_ptr<Turn> turn;
  return Guarded<T>(turn, [&]() -> Result<T> {
    auto changing = std::make_unique<ChangingTurn>(session);
    ChangingTurn& now = *changing;
    turn = std::move(changing);
    now.Begin(command, kind, needs);
    T value = work();
    const std::string why = now.Finish();
    if (why.empty()) {
      return value;
    }
    Error unpublished;
    unpublished.reason = Reason::kUnpublished;
    unpublished.number = MDOMAIN::BASE::kApiErrorUnpublished;
    unpublished.text = "done here, not published: " + why;
    unpublished.advice = "the next change or Publish publishes it";
    unpublished.log = now.TakeLog();
    return {std::move(value), std::move(unpublished)};
  });
}

// The same of a call that no domain administrator may make, `what` he may not do; it takes no turn
// for him.
template <typename T, typename Work>
Result<T> HostChange(const Session& session, const std::string& what, const std::string& command,
                     const Work& work, ChangeKind kind = ChangeKind::kChange,
                     Needs needs = Needs::kModel) {
  const Result<Nothing> is_host = Guarded<Nothing>(nullptr, [&]() -> Result<Nothing> {
    RequireHost(session, what);
    return Nothing();
  });
  return is_host ? Change<T>(session, command, work, kind, needs) : Result<T>(is_host.GetError());
}

}  // namespace session
}  // namespace mdomain

#endif  // LIB_DOMAIN_SESSION_TURN_H
