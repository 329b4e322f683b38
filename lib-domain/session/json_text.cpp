#include "lib-domain/session/json_text.h"

#include "lib-domain/base/json_text.h"
#include "platform/include/text.h"

namespace mdomain::session {

std::string ParseJson(const std::string& text, Json::Value& value) {
  if (!korvmailserver::IsValidUtf8(text)) {
    return "it is not UTF-8";
  }
  return MDOMAIN::BASE::ParseJson(text, value);
}

}  // namespace mdomain::session
