#include "lib-domain/session/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <memory>

#include "platform/include/text.h"

namespace mdomain::session {

std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value) + "\n";
}

std::string ParseJson(const std::string& text, Json::Value& value) {
  if (!korvmailserver::IsValidUtf8(text)) {
    return "it is not UTF-8";
  }
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = 64;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string error;
  bool is_parsed = false;
  try {
    is_parsed = reader->parse(text.data(), text.data() + text.size(), &value, &error);
  } catch (const Json::Exception& exception) {
    error = exception.what();
  }
  std::replace(error.begin(), error.end(), '\n', ' ');
  return is_parsed ? "" : error;
}

}  // namespace mdomain::session
