#include "lib-domain/base/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include "lib-domain/base/characters.h"
#include "platform/include/text.h"

namespace MDOMAIN::BASE {

namespace {

// Escapes what JSON would allow as it is and a terminal would not show. These characters stand in
// strings alone and all have four digits.
std::string EscapeHidden(const std::string& json) {
  std::string escaped;
  ForEachCharacter(json, [&](char32_t character, size_t at, size_t length) {
    const std::string bytes = json.substr(at, length);
    if (korvmailserver::VisibleText(bytes) == bytes) {
      escaped += bytes;
      return;
    }
    char text[8] = {};
    (void)std::snprintf(text, sizeof(text), "\\u%04x", static_cast<unsigned>(character));
    escaped += text;
  });
  return escaped;
}

// What JsonCpp writes of a text of plain ASCII, which most are.
bool IsPlain(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

}  // namespace

std::string ParseJson(const std::string& bytes, Json::Value& value) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = 64;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string error;
  bool is_parsed = false;
  try {
    is_parsed = reader->parse(bytes.data(), bytes.data() + bytes.size(), &value, &error);
  } catch (const Json::Exception& exception) {
    error = exception.what();
  }
  std::replace(error.begin(), error.end(), '\n', ' ');
  return is_parsed ? "" : error;
}

std::string JsonScalar(const Json::Value& value) {
  if (value.isString() && IsPlain(value.asString())) {
    return '"' + value.asString() + '"';
  }
  if (value.type() == Json::intValue) {
    return std::to_string(value.asLargestInt());
  }
  // Never destroyed: destructors of static objects may write. A writer is one thread's.
  static const auto& builder = *[] {
    auto* made = new Json::StreamWriterBuilder;
    (*made)["indentation"] = "";
    (*made)["emitUTF8"] = true;
    return made;
  }();
  const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  std::ostringstream text;
  writer->write(value.isString() ? Json::Value(ValidUtf8(value.asString())) : value, &text);
  const std::string json = text.str();
  return korvmailserver::VisibleText(json) == json ? json : EscapeHidden(json);
}

void AppendJson(const Json::Value& value, const std::string& indent, std::string& text) {
  if (value.empty() || !(value.isArray() || value.isObject())) {
    text += JsonScalar(value);
    return;
  }
  const std::string inner = indent + "  ";
  text += value.isArray() ? "[" : "{";
  bool first = true;
  for (auto element = value.begin(); element != value.end(); ++element) {
    text += first ? "\n" : ",\n";
    text += inner + (value.isObject() ? JsonScalar(element.name()) + ": " : "");
    AppendJson(*element, inner, text);
    first = false;
  }
  text += "\n" + indent + (value.isArray() ? "]" : "}");
}

std::string JsonText(const Json::Value& value) {
  std::string text;
  AppendJson(value, "", text);
  return text + "\n";
}

}  // namespace MDOMAIN::BASE
