// Standard output: one JSON array or object with --json, aligned text otherwise. On a terminal no
// line of a table is wider than the window, sentences are wrapped, and titles stand out; elsewhere
// texts are whole and plain.
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

#include "lib-domain/base/json_text.h"
#include "lib-domain/base/progress.h"
#include "tools/mdomain/spool.h"
#include "tools/mdomain/terminal.h"

namespace mdomain {

// A column of a listing: the record's field, the title above it, and how its value is written if
// not as usual (text, number, yes/no, elements joined with ", ").
struct Column {
  std::string field;
  std::string title;
  std::string (*write)(const Json::Value& value) = nullptr;
  // The colour of a cell on a terminal, by its text; null for none.
  Colour (*colour)(const std::string& cell) = nullptr;
};

// What an empty listing says to people.
constexpr const char* kNone = "none";

class Output {
 public:
  Output(bool json, bool quiet)
      : json_(json), is_quiet_(quiet && !json), terminal_(TerminalOfOutput()) {}

  // From now on --quiet keeps back everything but Raw and Answer; without it, Done alone. With
  // --json it keeps back nothing.
  void Silence() { is_silent_ = is_quiet_; }
  // Takes Silence back, for what was asked for and not only done.
  void Speak() { is_silent_ = false; }

  // An array of records. As text: a title line and one line per record; without records `none`.
  void List(const Json::Value& records, const std::vector<Column>& columns,
            const char* none = kNone);
  // An array of texts; as text one per line. Without any a terminal shows "none": a script that
  // reads lines gets no line that is no text of these.
  void Texts(const std::vector<std::string>& texts);
  // A line of text alone, without anything for --json.
  void Line(const std::string& text, Colour colour = Colour::kNone);
  // One object; as text one line per column.
  void Record(const Json::Value& record, const std::vector<Column>& columns);
  // What a change did: the object, or a sentence about it.
  void Done(const Json::Value& record, const std::string& sentence);
  // A value that was asked for: the object, or the text as it is, whole on one line.
  void Answer(const Json::Value& record, const std::string& text);
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
  bool is_quiet_;
  bool is_silent_ = false;
  Terminal terminal_;
  Spool text_;
};

// Output::List, record by record, for a listing of any length.
class Listing {
 public:
  // `out` must outlive it and get nothing else before End. With --json an array, or of_members one
  // object.
  Listing(Output& out, std::vector<Column> columns, bool of_members = false,
          const char* none = kNone);
  // A record, or with --json any value.
  void Add(const Json::Value& record);
  // A member of the object.
  void AddMember(const std::string& name, const Json::Value& value);
  // Ends the array, or lays out the table. Without it, only a table leaves nothing behind.
  void End();

 private:
  void _AddElement(const std::string& name, const Json::Value& value);
  void _AddLine(const std::vector<std::string>& cells);
  std::string _Row(std::vector<std::string> cells, const std::vector<int>& widths,
                   bool is_title) const;

  Output& out_;
  std::vector<Column> columns_;
  bool of_members_;
  const char* none_;
  std::vector<int> widths_;
  Spool lines_;  // of cells, as text
  size_t records_ = 0;
  MDOMAIN::BASE::Progress progress_{"writing lines", 0};
};

using MDOMAIN::BASE::JsonText;

// An array of texts.
Json::Value JsonTexts(const std::vector<std::string>& texts);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_OUTPUT_H
