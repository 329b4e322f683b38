// The text behind each API error number, and the exit status that it means.
#include "tools/mdomain/status.h"

namespace mdomain {

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
      return {kUnpublished, action + ": done here, not published; the log lines say why"};
    default:
      return {kFailed, action + " failed"};
  }
}

}  // namespace mdomain
