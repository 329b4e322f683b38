// How a command ends: the exit statuses, and the exception that carries a status and a message.
#ifndef TOOLS_MDOMAIN_STATUS_H
#define TOOLS_MDOMAIN_STATUS_H

#include <stdexcept>
#include <string>

namespace mdomain {

enum Status : int {
  kDone = 0,
  kFailed = 1,    // the operation could not be carried out; the log lines say why
  kUsage = 2,     // wrong arguments, host settings, or a confirmation that nobody can give
  kRefused = 3,   // duplicate, invalid, the primary domain: nothing was changed
  kNotFound = 4,  // no such domain, user, group or key: nothing was changed
  kSpared = 5,    // a refresh was done, but more accounts are gone than it may delete
  // The change was made on this machine, and is not published: the shared key store has not got it
  // yet, or this machine's would not keep it.
  kUnpublished = 6,
};

// Ends a command. The message names what was wrong and is printed after "mdomain: ", with what to
// do: `what_to_do`, or what stands behind ". Next: " in the message.
class Failure : public std::runtime_error {
 public:
  Failure(Status exit_status, const std::string& message, const std::string& what_to_do = "");

  const Status status;
  std::string next;  // empty: what usually helps with this status
};

// What usually helps where a command ended so.
std::string UsualNext(Status status);

// The failure behind an API error number (GetErrorCode): refused for a taken or invalid name.
Failure ApiFailure(unsigned int error_code, const std::string& action);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_STATUS_H
