#include "web/view/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>
#include <stdexcept>

namespace mdomain_web {

std::string ToText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

Json::Value FromText(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  builder["stackLimit"] = 64;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string problem;
  bool is_read = false;
  try {
    is_read = reader->parse(text.data(), text.data() + text.size(), &value, &problem);
  } catch (const Json::Exception& error) {  // nested too deeply
    problem = error.what();
  }
  if (!is_read) {
    throw std::invalid_argument(problem);
  }
  return value;
}

}  // namespace mdomain_web
