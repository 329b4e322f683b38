// Standard output: one JSON array or object with --json, aligned text otherwise.
//
// Everything is collected and written at the end, so a command that fails half-way leaves nothing
// on standard output, a full disk or a closed pipe is reported, and nobody waits for a reader who
// is slow. What is long is collected in a file.
#ifndef TOOLS_MDOMAIN_OUTPUT_H
#define TOOLS_MDOMAIN_OUTPUT_H

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tools/mdomain/spool.h"

namespace mdomain {

// A column of a listing: the record's field, the title above it, and how its value is written if
// not as usual (text, number, yes/no, elements joined with ", ").
struct Column {
  std::string field;
  std::string title;
  std::string (*write)(const Json::Value& value) = nullptr;
};

class Output {
 public:
  explicit Output(bool json) : json_(json) {}

  // An array of records. As text: a title line and one line per record; nothing without records.
  void List(const Json::Value& records, const std::vector<Column>& columns);
  // An array of texts; as text one per line.
  void Texts(const std::vector<std::string>& texts);
  // One object; as text one line per column.
  void Record(const Json::Value& record, const std::vector<Column>& columns);
  // What a change did: the object, or a sentence about it.
  void Done(const Json::Value& record, const std::string& sentence);
  // Bytes as they are (the generated documents).
  void Raw(const std::string& bytes) { text_.Append(bytes); }

  bool json() const { return json_; }
  // Drops what was collected.
  void Clear() { text_.Clear(); }
  // Writes what was collected. Throws a Failure when not all of it can be written.
  void Flush();

 private:
  friend class Listing;

  void Json(const Json::Value& value);

  bool json_;
  Spool text_;
};

// Output::List, record by record, for a listing of any length.
class Listing {
 public:
  // `out` must outlive it and get nothing else before End. With --json an array, or of_members one
  // object.
  Listing(Output& out, std::vector<Column> columns, bool of_members = false);
  // A record, or with --json any value.
  void Add(const Json::Value& record);
  // A member of the object.
  void AddMember(const std::string& name, const Json::Value& value);
  // Ends the array, or lays out the table. Without it, only a table leaves nothing behind.
  void End();

 private:
  void _AddElement(const std::string& name, const Json::Value& value);
  void _AddLine(const std::vector<std::string>& cells);

  Output& out_;
  std::vector<Column> columns_;
  bool of_members_;
  std::vector<int> widths_;
  Spool lines_;  // of cells, as text
  size_t records_ = 0;
};

// JSON with one element per line, in UTF-8, with a line end.
std::string JsonText(const Json::Value& value);

// An array of texts.
Json::Value JsonTexts(const std::vector<std::string>& texts);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_OUTPUT_H
