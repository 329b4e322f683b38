#include "lib-domain/base/json_text.h"

#include <json/reader.h>

#include <algorithm>
#include <memory>

namespace MDOMAIN::BASE {

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

}  // namespace MDOMAIN::BASE
