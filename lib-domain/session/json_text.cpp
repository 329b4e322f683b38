#include "lib-domain/session/json_text.h"

#include <json/writer.h>

#include <algorithm>

#include "lib-domain/base/json_text.h"
#include "platform/include/text.h"

namespace mdomain::session {

namespace {

// The character that begins there; each byte that is none is U+FFFD.
std::string CharacterAt(const std::string& text, size_t at) {
  for (const size_t length : {1, 2, 3, 4}) {
    const std::string character = text.substr(at, length);
    if (korvmailserver::IsValidUtf8(character)) {
      return character;
    }
  }
  return "";
}

}  // namespace

// Account systems and logs hold names in whatever bytes.
std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  const std::string text = Json::writeString(builder, value) + "\n";
  if (korvmailserver::IsValidUtf8(text)) {
    return text;
  }
  std::string clean;
  for (size_t at = 0; at < text.size();) {
    const std::string character = CharacterAt(text, at);
    clean += character.empty() ? "\xEF\xBF\xBD" : character;
    at += std::max<size_t>(character.size(), 1);
  }
  return clean;
}

std::string ParseJson(const std::string& text, Json::Value& value) {
  if (!korvmailserver::IsValidUtf8(text)) {
    return "it is not UTF-8";
  }
  return MDOMAIN::BASE::ParseJson(text, value);
}

}  // namespace mdomain::session
