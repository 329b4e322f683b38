// The text behind each API error number, and the exit status that it means.
#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

constexpr const char* kNext = ". Next: ";

std::string WithoutNext(const std::string& message) {
  return message.substr(0, message.find(kNext));
}

}  // namespace

Failure::Failure(Status exit_status, const std::string& message, const std::string& what_to_do)
    : std::runtime_error(WithoutNext(message)), status(exit_status), next(what_to_do) {
  const size_t at = message.find(kNext);
  if (at != std::string::npos) {
    next = message.substr(at + std::string(kNext).size());
  }
}

std::string UsualNext(Status status) {
  switch (status) {
    case kUsage:
      return "mdomain help says how it is written";
    case kRefused:
      return "nothing was changed: correct what the message names";
    case kNotFound:
      return "nothing was changed: look at the spelling, or list what there is";
    case kSpared:
      return "look at who is gone; mdomain refresh --force deletes them";
    case kUnpublished:
      return "mdomain publish";
    default:
      return "mdomain doctor looks for the cause, and -v shows every log line";
  }
}

Failure ApiFailure(unsigned int error_code, const std::string& action) {
  switch (error_code) {
    case 5618:
      return {kRefused, action +
                            ": a domain already has this name, as its own or as an "
                            "additional one, in this or the other spelling"};
    case 5633:
      return {kRefused, action + ": the name or the alias pattern is not valid"};
    case 5634:
      return {kFailed, action + ": the account system did not give all of its accounts"};
    case 5635:
      return {kUnpublished, action + ": done here, not published"};
    default:
      return {kFailed, action + " failed"};
  }
}

}  // namespace mdomain
