// Cells and columns of the text form, and the layout of the JSON form.
#include "tools/mdomain/output.h"

#include <json/writer.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

#include "tools/mdomain/status.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

std::string Cell(const Json::Value& value) {
  if (value.isBool()) {
    return value.asBool() ? "yes" : "no";
  }
  if (value.isArray()) {
    std::string joined;
    for (const Json::Value& element : value) {
      joined += (joined.empty() ? "" : ", ") + Cell(element);
    }
    return joined;
  }
  return value.isObject() ? "" : Printable(value.asString());
}

std::string Cell(const Json::Value& record, const Column& column) {
  const Json::Value& value = record[column.field];
  return column.write == nullptr ? Cell(value) : Printable(column.write(value));
}

std::string Padded(const std::string& text, int width) {
  const int missing = width - Width(text);
  return text + std::string(static_cast<size_t>(std::max(missing, 0)), ' ');
}

// Lines of cells, each column as wide as its widest cell; the last one is not padded.
std::string Aligned(const std::vector<std::vector<std::string>>& lines) {
  std::vector<int> widths;
  for (const auto& line : lines) {
    widths.resize(std::max(widths.size(), line.size()));
    for (size_t i = 0; i < line.size(); ++i) {
      widths[i] = std::max(widths[i], Width(line[i]));
    }
  }
  std::string text;
  for (const auto& line : lines) {
    std::string row;
    for (size_t i = 0; i < line.size(); ++i) {
      row += i + 1 == line.size() ? line[i] : Padded(line[i], widths[i] + 2);
    }
    row.erase(row.find_last_not_of(' ') + 1);
    text += row + "\n";
  }
  return text;
}

// Escapes what JSON would allow as it is and a terminal would not show. These characters stand in
// strings alone and all have four digits.
std::string EscapeHidden(const std::string& json) {
  std::string escaped;
  ForEachCharacter(json, [&](char32_t character, size_t at, size_t length) {
    const std::string bytes = json.substr(at, length);
    if (Printable(bytes) == bytes) {
      escaped += bytes;
      return;
    }
    char text[8] = {};
    (void)std::snprintf(text, sizeof(text), "\\u%04x", static_cast<unsigned>(character));
    escaped += text;
  });
  return escaped;
}

// A value without elements, on one line. Bytes that are not UTF-8 are replaced: JsonCpp writes them
// as they are, and a reader would refuse the whole text.
std::string JsonScalar(const Json::Value& value) {
  static const auto writer = [] {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
  }();
  std::ostringstream text;
  writer->write(value.isString() ? Json::Value(ValidUtf8(value.asString())) : value, &text);
  const std::string json = text.str();
  return Printable(json) == json ? json : EscapeHidden(json);
}

// One element per line, without the blanks that JsonCpp's own layout leaves at line ends.
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

}  // namespace

std::string JsonText(const Json::Value& value) {
  std::string text;
  AppendJson(value, "", text);
  return text + "\n";
}

Json::Value JsonTexts(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) {
    array.append(text);
  }
  return array;
}

void Output::Json(const Json::Value& value) {
  text_ += JsonText(value);
}

void Output::List(const Json::Value& records, const std::vector<Column>& columns) {
  if (json_) {
    Json(records.isNull() ? Json::Value(Json::arrayValue) : records);
    return;
  }
  if (records.empty()) {
    return;
  }
  std::vector<std::vector<std::string>> lines(1);
  for (const Column& column : columns) {
    lines[0].push_back(column.title);
  }
  for (const Json::Value& record : records) {
    lines.emplace_back();
    for (const Column& column : columns) {
      lines.back().push_back(Cell(record, column));
    }
  }
  text_ += Aligned(lines);
}

void Output::Texts(const std::vector<std::string>& texts) {
  if (json_) {
    Json(JsonTexts(texts));
    return;
  }
  for (const std::string& text : texts) {
    text_ += Printable(text) + "\n";
  }
}

void Output::Record(const Json::Value& record, const std::vector<Column>& columns) {
  if (json_) {
    Json(record);
    return;
  }
  std::vector<std::vector<std::string>> lines;
  lines.reserve(columns.size());
  for (const Column& column : columns) {
    const std::string cell = Cell(record, column);
    lines.push_back({column.title, cell.empty() ? "-" : cell});
  }
  text_ += Aligned(lines);
}

void Output::Done(const Json::Value& record, const std::string& sentence) {
  if (json_) {
    Json(record);
  } else {
    text_ += Printable(sentence) + "\n";
  }
}

void Output::Flush() {
  const size_t written = std::fwrite(text_.data(), 1, text_.size(), stdout);
  if (written != text_.size() || std::fflush(stdout) != 0) {
    throw Failure(kFailed, std::string("cannot write the output: ") + std::strerror(errno));
  }
  text_.clear();
}

}  // namespace mdomain
