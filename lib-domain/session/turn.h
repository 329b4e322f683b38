// One call of a session: its turn among the threads and programs, what it logs, and how it ends.
#ifndef LIB_DOMAIN_SESSION_TURN_H
#define LIB_DOMAIN_SESSION_TURN_H

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
#include "lib-domain/sync/change_lock.h"

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

  // Warnings and errors so far.
  std::vector<std::string> TakeLog();
  // Takes back what was changed. What is still there, or the empty string.
  virtual std::string GiveUp() { return ""; }

 protected:
  const SessionState& state_;

 private:
  std::unique_lock<std::recursive_mutex> lock_;
  std::shared_ptr<struct GatheredLog> log_;
};

// Refreshes and undoing are taken back neither by an undo nor where they fail: the next one goes on
// with what is done.
using ChangeKind = MDOMAIN::HISTORY::EntryKind;

// What a change needs to be as it should: all, or for what mends that, nothing but the lock.
enum class Needs { kModel, kNothing };

// The steps of the outermost changing turn of a thread, and of a dry run. They end the call where
// the lock is not to be had, and where this machine or this model may not be changed now.
std::string PersonOf(const SessionState& state);  // whom the history names
void TakeLock(const SessionState& state, MDOMAIN::UTILS::ChangeLock& lock);
void RequireManager();
void RequireOwnModel();
// How many changing turns the thread that holds the mutex is in.
int& Depth();

// A turn that changes something: holds the lock file, keeps publications back and watches what is
// changed. The outermost one of a thread ends with Finish, or takes everything back.
class ChangingTurn : public Turn {
 public:
  // Ends the call where this machine or this model may not be changed now.
  ChangingTurn(const Session& session, const std::string& command, ChangeKind kind, Needs needs);
  ~ChangingTurn() override;

  // Publishes, and writes the history. Why it was not published, or the empty string.
  std::string Finish();
  std::string GiveUp() override;

 private:
  struct Work;

  std::unique_ptr<Work> work_;  // of the outermost
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

// `command` is what the history calls it.
template <typename T, typename Work>
Result<T> Change(const Session& session, const std::string& command, const Work& work,
                 ChangeKind kind = ChangeKind::kChange, Needs needs = Needs::kModel) {
  std::unique_ptr<Turn> turn;
  return Guarded<T>(turn, [&]() -> Result<T> {
    auto changing = std::make_unique<ChangingTurn>(session, command, kind, needs);
    ChangingTurn& now = *changing;
    turn = std::move(changing);
    T value = work();
    const std::string why = now.Finish();
    if (why.empty()) {
      return value;
    }
    Error unpublished;
    unpublished.reason = Reason::kUnpublished;
    unpublished.text = "done here, not published: " + why;
    unpublished.advice = "the next change or Publish publishes it";
    unpublished.log = now.TakeLog();
    return {std::move(value), std::move(unpublished)};
  });
}

}  // namespace session
}  // namespace mdomain

#endif  // LIB_DOMAIN_SESSION_TURN_H
