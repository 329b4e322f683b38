#include "tools/mdomain/document.h"

#include <json/reader.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>

#include "platform/include/files.h"

namespace mdomain {

std::string ReadInput(const std::string& name, Status missing) {
  if (name == "-") {
    return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
  }
  std::string bytes;
  if (korvmailserver::ReadFile(name, bytes) < 0) {
    throw Failure(missing, name + " could not be read: " + std::strerror(errno));
  }
  return bytes;
}

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

}  // namespace mdomain
