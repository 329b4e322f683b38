// Cells and columns of the text form, and the layout of the JSON form.
#include "tools/mdomain/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/mdomain/notes.h"
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

}  // namespace

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

void Output::List(const Json::Value& records, const std::vector<Column>& columns,
                  const char* none) {
  Listing listing(*this, columns, false, none);
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
    Line(text);
  }
  if (texts.empty() && terminal_.is_one) {
    Line(kNone);
  }
}

void Output::Line(const std::string& text, Colour colour) {
  if (json_ || is_silent_) {
    return;
  }
  const std::string shown = Printable(text);
  if (terminal_.width == 0) {
    text_.Append(shown + "\n");
    return;
  }
  const std::string indent(
      shown.find_first_not_of(' ') == std::string::npos ? 0 : shown.find_first_not_of(' ') + 2,
      ' ');
  const int room = std::max(terminal_.width - static_cast<int>(indent.size()), 1);
  bool is_first = true;
  for (const std::string& line : Wrap(shown, room, false)) {
    text_.Append((is_first ? "" : indent) +
                 (terminal_.has_colours ? Coloured(line, colour) : line) + "\n");
    is_first = false;
  }
}

void Output::Record(const Json::Value& record, const std::vector<Column>& columns) {
  if (json_) {
    Json(record);
    return;
  }
  if (is_silent_) {
    return;
  }
  int width = 0;
  for (const Column& column : columns) {
    width = std::max(width, Width(column.title));
  }
  constexpr int kLeastRoom = 5;
  const int room = std::max(terminal_.width - width - 2, kLeastRoom);
  for (const Column& column : columns) {
    const std::string cell = Cell(record, column);
    const std::string value = cell.empty() ? "-" : cell;
    std::string title = column.title;
    for (const std::string& line :
         terminal_.width == 0 ? std::vector{value} : Wrap(value, room, true)) {
      text_.Append(Padded(title, width + 2) + line + "\n");
      title.clear();
    }
  }
}

void Output::Done(const Json::Value& record, const std::string& sentence) {
  if (json_) {
    Json(record);
  } else if (!is_quiet_) {
    Line(sentence);
  }
}

void Output::Answer(const Json::Value& record, const std::string& text) {
  if (json_) {
    Json(record);
  } else {
    text_.Append(Printable(text) + "\n");
  }
}

void Output::Flush() {
  ClearStatus();
  const bool is_written = text_.ForEachPiece([](std::string_view piece) {
    return std::fwrite(piece.data(), 1, piece.size(), stdout) == piece.size();
  });
  if (!is_written || std::fflush(stdout) != 0) {
    throw Failure(kFailed, std::string("cannot write the output: ") + std::strerror(errno));
  }
  text_.Clear();
}

Listing::Listing(Output& out, std::vector<Column> columns, bool of_members, const char* none)
    : out_(out),
      columns_(std::move(columns)),
      of_members_(of_members),
      none_(none),
      widths_(columns_.size()) {}

void Listing::AddMember(const std::string& name, const Json::Value& value) {
  _AddElement(MDOMAIN::BASE::JsonScalar(name) + ": ", value);
}

// `name` as it stands before the value.
void Listing::_AddElement(const std::string& name, const Json::Value& value) {
  std::string text = records_++ == 0 ? (of_members_ ? "{" : "[") : ",";
  text += "\n  " + name;
  MDOMAIN::BASE::AppendJson(value, "  ", text);
  out_.text_.Append(text);
}

void Listing::Add(const Json::Value& record) {
  progress_.Step();
  if (out_.json_) {
    _AddElement("", record);
    return;
  }
  if (out_.is_silent_) {
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
  if (records_ == 0) {
    // A script that reads lines gets none that means nothing.
    if (none_ != std::string_view(kNone) || out_.terminal_.is_one) {
      out_.Line(none_);
    }
    return;
  }
  const int width = out_.terminal_.width;
  const std::vector<int> widths = width == 0 ? widths_ : FittingWidths(widths_, width);
  bool is_title = true;
  lines_.ForEachLine([&](std::string_view line) {
    std::vector<std::string> cells;
    for (size_t end = 0; (end = line.find(kCellEnd)) != std::string_view::npos;) {
      cells.emplace_back(line.substr(0, end));
      line.remove_prefix(end + 1);
    }
    out_.text_.Append(_Row(std::move(cells), widths, is_title));
    is_title = false;
  });
}

// Cells in columns of these widths, as a line; the last one is not padded.
std::string Listing::_Row(std::vector<std::string> cells, const std::vector<int>& widths,
                          bool is_title) const {
  const Terminal& terminal = out_.terminal_;
  std::string row;
  std::string coloured;
  for (size_t i = 0; i < cells.size(); ++i) {
    const std::string cell = terminal.width == 0 ? cells[i] : Cut(cells[i], widths[i]);
    const std::string padded = i + 1 == cells.size() ? cell : Padded(cell, widths[i] + 2);
    const Colour colour = is_title                        ? Colour::kBold
                          : columns_[i].colour == nullptr ? Colour::kNone
                                                          : columns_[i].colour(cells[i]);
    row += padded;
    coloured += Coloured(padded, colour);
  }
  row.erase(row.find_last_not_of(' ') + 1);
  if (terminal.width != 0 && Width(row) > terminal.width) {
    return Cut(row, terminal.width) + "\n";  // in a window for which no column is narrow enough
  }
  return (terminal.has_colours ? coloured : row) + "\n";
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
