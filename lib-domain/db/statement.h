// The texts of statements: formatting, lists of ids, the batch that one operation writes.
#ifndef LIB_DOMAIN_DB_STATEMENT_H
#define LIB_DOMAIN_DB_STATEMENT_H

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/db_handler.h"

namespace MDOMAIN::DB::INTERNAL {

// Size of the buffer a statement is formatted into: at most 999,999 bytes and a zero byte.
constexpr size_t kStatementSize = 1000000;

// `format` with SQLite's own conversions ("%q" doubles single quotes). Arguments are C strings and
// numbers. The empty string when the text does not fit into kStatementSize: a cut statement would
// mean something else, so there is none. Database::Query and StatementBatch take "" as a failure.
std::string FormatStatement(const char* format, ...);

// A search text as it stands between single quotes. Longer than a statement, it is cut, but never
// between the two halves of a doubled quote, which would end the literal.
std::string EscapeQuery(const std::string& query);

// A list of ids as texts joined by ",", in order, each short enough for one statement. An empty
// list gives one empty text: "IN ()" is valid and matches nothing. For int and unsigned int.
template <typename Id>
std::vector<std::string> JoinIdsInPieces(const std::vector<Id>& ids);

// The writes of one operation, in order; Database::Run runs them.
class StatementBatch {
 public:
  // A statement as FormatStatement makes it.
  void Add(std::string statement) {
    fits_ = fits_ && !statement.empty();
    statements_.push_back(std::move(statement));
  }
  // A statement per valid record, as `format(record)` makes it. Invalid ones are left out silently.
  template <typename Record, typename Format>
  void AddValid(const std::vector<Record>& records, const Format& format) {
    for (const Record& record : records) {
      if (record.IsValid()) {
        Add(format(record));
      }
    }
  }
  // A statement whose last argument ("%q") is a list of ids, as often as JoinIdsInPieces needs.
  template <typename Id, typename... Arguments>
  void AddWithIds(const char* format, const std::vector<Id>& ids, Arguments... before) {
    for (const std::string& piece : JoinIdsInPieces(ids)) {
      Add(FormatStatement(format, before..., piece.c_str()));
    }
  }

  // Whether no statement was too long.
  bool Fits() const { return fits_; }
  const SQLCmd& Statements() const { return statements_; }

 private:
  SQLCmd statements_;
  bool fits_ = true;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_STATEMENT_H
