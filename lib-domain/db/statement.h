// The texts of statements: formatting, lists of ids, the batch that one operation writes.
#ifndef LIB_DOMAIN_DB_STATEMENT_H
#define LIB_DOMAIN_DB_STATEMENT_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "lib-domain/base/progress.h"
#include "lib-domain/db/sql.h"
#include "platform/include/db_handler.h"
#include "platform/include/sqlite.h"

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

// The condition that the column contains the text, ASCII case ignored. Where it is literal, "%",
// "_" and "\" in it mean themselves; else the first two are wildcards.
std::string Like(const std::string& column, const std::string& query);
// The search text whose wildcards mean themselves; Like knows it. Filters keep no flag for it:
// their size is part of the interface.
std::string LiteralQuery(const std::string& text);

// A list of ids as texts joined by ",", in order, each short enough for one statement. An empty
// list gives one empty text: "IN ()" is valid and matches nothing. For int and unsigned int.
template <typename Id>
std::vector<std::string> JoinIdsInPieces(const std::vector<Id>& ids);

// The list as one value, for "IN (SELECT value FROM json_each(...))" in a constant statement. Texts
// end at their first zero byte.
std::string JsonList(const std::vector<unsigned int>& ids);
std::string JsonList(const std::vector<std::string>& texts);

// `format` with a parameter in the place of each value that stands alone: '%q', '%d', '%u', and %d
// and %u without quotes. Where a column has an affinity, a bound number is stored and compared as
// the same number in quotes is.
std::string WithParameters(const char* format);
// `format` with the values in those places, as FormatStatement writes them.
std::string WithValues(const char* format, const std::vector<std::string>& values);

// `format` with one number, or one value for JsonList, in the place of its list of ids, "(%q)".
// They live as long as the process.
const char* FormatOfOne(const char* format);
const char* FormatOfList(const char* format);

// The writes of one operation, in order; Database::Run runs them.
class StatementBatch {
 public:
  // A statement as FormatStatement makes it.
  void Add(std::string statement) {
    fits_ = fits_ && !statement.empty();
    const auto run = [statement](sqlite3* db) {
      return sqlite3_exec(db, statement.c_str(), nullptr, nullptr, nullptr);
    };
    steps_.push_back({std::move(statement), run});
  }
  // A constant statement with its values, which the connection keeps compiled for the next batch.
  void AddKept(const Sql& sql);
  // For each of the records, which must outlive the batch, the statement that FormatStatement makes
  // of `format` and the tuple of numbers and texts that `values_of(record)` gives, each a value
  // that stands alone. It is compiled once.
  template <typename Record, typename Values>
  void AddEach(const char* format, const std::vector<Record>& records, const Values& values_of) {
    _AddEach(format, records, values_of, [](const Record& /*record*/) { return true; });
  }
  // The same for the valid records. Invalid ones are left out silently.
  template <typename Record, typename Values>
  void AddValid(const char* format, const std::vector<Record>& records, const Values& values_of) {
    _AddEach(format, records, values_of, [](const Record& record) { return record.IsValid(); });
  }
  // A statement whose last argument, "(%q)", is a list of ids, and whose others are numbers; as
  // often as JoinIdsInPieces needs. It stays compiled.
  template <typename Id, typename... Numbers>
  void AddWithIds(const char* format, const std::vector<Id>& ids, Numbers... before) {
    if (ids.size() == 1) {
      AddKept(Sql(FormatOfOne(format), before..., ids.front()));
      return;
    }
    for (const std::string& piece : JoinIdsInPieces(ids)) {
      AddKept(Sql(FormatOfList(format), before..., "[" + piece + "]"));
    }
  }

  // Where AddKept keeps statements; else they are compiled for this run.
  void KeepIn(const std::shared_ptr<KeptStatements>& kept) const { *kept_ = kept; }
  // Whether no statement was too long.
  bool Fits() const { return fits_; }
  const std::vector<SqlStep>& Steps() const { return steps_; }

 private:
  static const char* _Printed(const std::string& text) { return text.c_str(); }
  static const char* _Printed(const char* text) { return text; }
  template <typename Number>
  static Number _Printed(Number number) {
    return number;
  }
  static size_t _SizeOf(const std::string& text) { return text.size(); }
  static size_t _SizeOf(...) { return 0; }
  static bool _Bind(korvmailserver::Statement& statement, int parameter, const std::string& text) {
    return statement.Bind(parameter, std::string_view(text.c_str()));  // up to its first zero byte
  }
  template <typename Number>
  static bool _Bind(korvmailserver::Statement& statement, int parameter, Number number) {
    return statement.Bind(parameter, number);
  }

  template <typename... Values>
  static std::string _Format(const char* format, const std::tuple<Values...>& tuple) {
    return std::apply(
        [format](const auto&... values) { return FormatStatement(format, _Printed(values)...); },
        tuple);
  }
  template <typename... Values>
  static bool _IsShortEnough(const char* format, const std::tuple<Values...>& tuple) {
    constexpr size_t kSurelyShort = kStatementSize / 4;
    const size_t size =
        std::apply([](const auto&... values) { return (_SizeOf(values) + ... + 0); }, tuple);
    return size < kSurelyShort || !_Format(format, tuple).empty();
  }
  template <typename... Values>
  static int _RunWith(korvmailserver::Statement& statement, const std::tuple<Values...>& tuple) {
    std::apply(
        [&statement](const auto&... values) {
          int parameter = 0;
          (_Bind(statement, ++parameter, values), ...);
        },
        tuple);
    const int result = statement.Step();
    statement.Reset();
    return result == SQLITE_DONE ? SQLITE_OK : result;
  }

  template <typename Record, typename Values, typename IsWanted>
  void _AddEach(const char* format, const std::vector<Record>& records, const Values& values_of,
                const IsWanted& is_wanted) {
    if (records.size() < kFewRecords) {
      for (const Record& record : records) {
        if (is_wanted(record)) {
          AddKept(std::apply([format](const auto&... values) { return Sql(format, values...); },
                             values_of(record)));
        }
      }
      return;
    }
    bool has_any = false;
    for (const Record& record : records) {
      if (is_wanted(record)) {
        has_any = true;
        fits_ = fits_ && _IsShortEnough(format, values_of(record));
      }
    }
    if (!has_any) {
      return;
    }
    const auto run = [format, &records, values_of, is_wanted](sqlite3* db) {
      korvmailserver::Statement statement(db, WithParameters(format));
      BASE::Progress progress("writing rows", records.size());
      int result = SQLITE_OK;
      for (auto record = records.begin(); record != records.end() && result == SQLITE_OK;
           ++record) {
        if (is_wanted(*record)) {
          result = _RunWith(statement, values_of(*record));
        }
        progress.Step();
      }
      return result;
    };
    steps_.push_back({format, run});
  }

  // Compiling once is not worth while for less.
  static constexpr size_t kFewRecords = 8;

  std::vector<SqlStep> steps_;
  // Where the steps find it when they run.
  std::shared_ptr<std::shared_ptr<KeptStatements>> kept_ =
      std::make_shared<std::shared_ptr<KeptStatements>>(std::make_shared<KeptStatements>());
  bool fits_ = true;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_STATEMENT_H
