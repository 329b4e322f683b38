// Numbers as text and texts with their length before them, "5:hello": any byte may stand in one.
#include "lib-domain/history/kept_changes.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace MDOMAIN::HISTORY {

namespace {

using korvmailserver::RowChange;
using korvmailserver::SqlRow;
using korvmailserver::SqlValue;
using korvmailserver::TableChange;

constexpr const char* kVersion = "mdomain changes 1";

class Writer {
 public:
  void Text(const std::string& text) {
    bytes += std::to_string(text.size()) + ":";
    bytes += text;
  }
  void Number(long long number) { Text(std::to_string(number)); }
  void Value(const SqlValue& value) {
    Number(static_cast<int>(value.type));
    if (value.type == SqlValue::Type::kInteger) {
      Number(value.integer);
    } else if (value.type == SqlValue::Type::kReal) {
      char text[32] = {};
      (void)std::snprintf(text, sizeof(text), "%.17g", value.real);
      Text(text);
    } else {
      Text(value.bytes);
    }
  }
  void Row(const SqlRow& row) {
    Number(static_cast<long long>(row.size()));
    for (const SqlValue& value : row) {
      Value(value);
    }
  }

  std::string bytes;
};

// Every reading after a failed one fails.
class ByteReader {
 public:
  explicit ByteReader(const std::string& bytes) : bytes_(bytes) {}

  bool Text(std::string& text) {
    const size_t colon = bytes_.find(':', at_);
    size_t size = 0;
    if (colon == std::string::npos || !_Parse(bytes_.substr(at_, colon - at_), size) ||
        size > bytes_.size() - colon - 1) {
      at_ = bytes_.size();
      return false;
    }
    text = bytes_.substr(colon + 1, size);
    at_ = colon + 1 + size;
    return true;
  }
  template <typename Number>
  bool Read(Number& number) {
    std::string text;
    return Text(text) && _Parse(text, number);
  }
  bool Value(SqlValue& value) {
    int type = 0;
    std::string text;
    if (!Read(type) || type < 0 || type > static_cast<int>(SqlValue::Type::kBlob) || !Text(text)) {
      return false;
    }
    value.type = static_cast<SqlValue::Type>(type);
    switch (value.type) {
      case SqlValue::Type::kInteger:
        return _Parse(text, value.integer);
      case SqlValue::Type::kReal:
        value.real = std::strtod(text.c_str(), nullptr);
        return true;
      default:
        value.bytes = text;
        return true;
    }
  }
  bool Row(SqlRow& row) {
    return _ForEach([&] {
      row.emplace_back();
      return Value(row.back());
    });
  }
  template <typename Use>
  bool List(const Use& use) {
    return _ForEach(use);
  }

 private:
  template <typename Use>
  bool _ForEach(const Use& use) {
    size_t count = 0;
    if (!Read(count)) {
      return false;
    }
    for (size_t i = 0; i < count; ++i) {
      if (!use()) {
        return false;
      }
    }
    return true;
  }
  template <typename Number>
  static bool _Parse(const std::string& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
  }

  const std::string& bytes_;
  size_t at_ = 0;
};

bool ReadTable(ByteReader& reader, const std::string& folder, TableChange& table) {
  std::string name;
  const auto column = [&] {
    table.columns.emplace_back();
    return reader.Text(table.columns.back());
  };
  const auto row = [&] {
    table.rows.emplace_back();
    RowChange& change = table.rows.back();
    return reader.Read(change.rowid) && reader.Row(change.before) && reader.Row(change.after);
  };
  const bool is_read =
      reader.Text(name) && reader.Text(table.table) && reader.List(column) && reader.List(row);
  table.path = folder + name;
  return is_read && name.find('/') == std::string::npos;
}

}  // namespace

std::string ToBytes(const Changes& changes, const std::string& model) {
  Writer writer;
  writer.Text(kVersion);
  writer.Text(model);
  writer.Number(static_cast<long long>(changes.tables.size()));
  for (const TableChange& table : changes.tables) {
    writer.Text(table.path.substr(table.path.rfind('/') + 1));
    writer.Text(table.table);
    writer.Number(static_cast<long long>(table.columns.size()));
    for (const std::string& column : table.columns) {
      writer.Text(column);
    }
    writer.Number(static_cast<long long>(table.rows.size()));
    for (const RowChange& row : table.rows) {
      writer.Number(row.rowid);
      writer.Row(row.before);
      writer.Row(row.after);
    }
  }
  writer.Number(static_cast<long long>(changes.files.size()));
  for (const FileChange& file : changes.files) {
    writer.Text(file.path);
    writer.Number(file.was_there ? 1 : 0);
    writer.Number(file.is_there ? 1 : 0);
    writer.Text(file.before);
    writer.Text(file.after);
  }
  return writer.bytes;
}

bool FromBytes(const std::string& bytes, const std::string& folder, Changes& changes,
               std::string& model) {
  ByteReader reader(bytes);
  std::string version;
  const auto table = [&] {
    changes.tables.emplace_back();
    return ReadTable(reader, folder, changes.tables.back());
  };
  const auto file = [&] {
    changes.files.emplace_back();
    FileChange& change = changes.files.back();
    int was_there = 0;
    int is_there = 0;
    const bool is_read = reader.Text(change.path) && reader.Read(was_there) &&
                         reader.Read(is_there) && reader.Text(change.before) &&
                         reader.Text(change.after);
    change.was_there = was_there != 0;
    change.is_held = change.was_there;
    change.is_there = is_there != 0;
    return is_read && change.path.find("..") == std::string::npos;
  };
  return reader.Text(version) && version == kVersion && reader.Text(model) && reader.List(table) &&
         reader.List(file);
}

}  // namespace MDOMAIN::HISTORY
