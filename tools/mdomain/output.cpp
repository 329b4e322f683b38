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

constexpr char kCellEnd = '\x1f';  // stands in no printable text

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

// Cells in columns of these widths, as a line; the last one is not padded.
std::string Aligned(const std::vector<std::string>& cells, const std::vector<int>& widths) {
  std::string row;
  for (size_t i = 0; i < cells.size(); ++i) {
    row += i + 1 == cells.size() ? cells[i] : Padded(cells[i], widths[i] + 2);
  }
  row.erase(row.find_last_not_of(' ') + 1);
  return row + "\n";
}

// Lines of cells, each column as wide as its widest cell.
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
    text += Aligned(line, widths);
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

// What JsonCpp writes of a text of plain ASCII, which most are.
bool IsPlain(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

// A value without elements, on one line. Bytes that are not UTF-8 are replaced: JsonCpp writes them
// as they are, and a reader would refuse the whole text.
std::string JsonScalar(const Json::Value& value) {
  if (value.isString() && IsPlain(value.asString())) {
    return '"' + value.asString() + '"';
  }
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
  text_.Append(JsonText(value));
}

void Output::List(const Json::Value& records, const std::vector<Column>& columns) {
  Listing listing(*this, columns);
  for (const Json::Value& record : records) {
    listing.Add(record);
  }
  listing.End();
}

void Output::Texts(const std::vector<std::string>& texts) {
  if (json_) {
    Listing listing(*this, {});
    std::for_each(texts.begin(), texts.end(), [&](const auto& text) { listing.Add(text); });
    listing.End();
    return;
  }
  for (const std::string& text : texts) {
    text_.Append(Printable(text) + "\n");
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
  text_.Append(Aligned(lines));
}

void Output::Done(const Json::Value& record, const std::string& sentence) {
  if (json_) {
    Json(record);
  } else {
    text_.Append(Printable(sentence) + "\n");
  }
}

void Output::Flush() {
  const bool is_written = text_.ForEachPiece([](std::string_view piece) {
    return std::fwrite(piece.data(), 1, piece.size(), stdout) == piece.size();
  });
  if (!is_written || std::fflush(stdout) != 0) {
    throw Failure(kFailed, std::string("cannot write the output: ") + std::strerror(errno));
  }
  text_.Clear();
}

Listing::Listing(Output& out, std::vector<Column> columns, bool of_members)
    : out_(out), columns_(std::move(columns)), of_members_(of_members), widths_(columns_.size()) {}

void Listing::AddMember(const std::string& name, const Json::Value& value) {
  _AddElement(JsonScalar(name) + ": ", value);
}

// `name` as it stands before the value.
void Listing::_AddElement(const std::string& name, const Json::Value& value) {
  std::string text = records_++ == 0 ? (of_members_ ? "{" : "[") : ",";
  text += "\n  " + name;
  AppendJson(value, "  ", text);
  out_.text_.Append(text);
}

void Listing::Add(const Json::Value& record) {
  if (out_.json_) {
    _AddElement("", record);
    return;
  }
  std::vector<std::string> cells;
  if (records_++ == 0) {
    for (const Column& column : columns_) {
      cells.push_back(column.title);
    }
    _AddLine(cells);
    cells.clear();
  }
  for (const Column& column : columns_) {
    cells.push_back(Cell(record, column));
  }
  _AddLine(cells);
}

void Listing::End() {
  if (out_.json_) {
    const std::string end = of_members_ ? "}\n" : "]\n";
    out_.text_.Append(records_ == 0 ? (of_members_ ? "{" : "[") + end : "\n" + end);
    return;
  }
  lines_.ForEachLine([this](std::string_view line) {
    std::vector<std::string> cells;
    for (size_t end = 0; (end = line.find(kCellEnd)) != std::string_view::npos;) {
      cells.emplace_back(line.substr(0, end));
      line.remove_prefix(end + 1);
    }
    out_.text_.Append(Aligned(cells, widths_));
  });
}

void Listing::_AddLine(const std::vector<std::string>& cells) {
  std::string line;
  for (size_t i = 0; i < cells.size(); ++i) {
    widths_[i] = std::max(widths_[i], Width(cells[i]));
    line += cells[i] + kCellEnd;
  }
  lines_.Append(line + "\n");
}

}  // namespace mdomain
