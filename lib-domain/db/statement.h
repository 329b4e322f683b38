// What every store does alike: formatting statements, running batches, reading rows.
//
// The helpers that log take the place they were called from, so that a line names the store and
// not this file. Each logs exactly one error line when it fails, after SQLite's reason.
#ifndef LIB_DOMAIN_DB_STATEMENT_H
#define LIB_DOMAIN_DB_STATEMENT_H

#include <string>
#include <vector>

#include "lib-domain/db/handler.h"

namespace MDOMAIN::DB::INTERNAL {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

// Size of the buffer a statement is formatted into: at most 999,999 bytes and a zero byte.
constexpr size_t kStatementSize = 1000000;

// A place in a source; as a default argument, the place of the call.
struct SourceHere {
  const char* file;
  int line;
  static constexpr SourceHere Now(const char* file = __builtin_FILE(),
                                  int line = __builtin_LINE()) {
    return {file, line};
  }
};

// `format` with SQLite's own conversions ("%q" doubles single quotes). Arguments are C strings and
// numbers. The empty string when the text does not fit into kStatementSize: a cut statement would
// mean something else, so there is none. Select and StatementBatch take "" as a failure.
std::string FormatStatement(const char* format, ...);

// A search text as it stands between single quotes. Longer than a statement, it is cut, but never
// between the two halves of a doubled quote, which would end the literal.
std::string EscapeQuery(const std::string& query);

// A list of ids as texts joined by ",", in order, each short enough for one statement. An empty
// list gives one empty text: "IN ()" is valid and matches nothing.
std::vector<std::string> JoinIdsInPieces(const std::vector<unsigned int>& ids);
std::vector<std::string> JoinIdsInPieces(const std::vector<int>& ids);

// The writes of one operation, run as one transaction.
class StatementBatch {
 public:
  // FormatStatement, kept at the end of the batch.
  void Add(const char* format, ...);

  // All statements or none; an empty batch succeeds. False, with the reason (a warning) and
  // `failure` logged, when the database refused or when one of the statements did not fit (then
  // nothing is sent at all).
  bool Run(DBHandler* handler, const char* failure, SourceHere here = SourceHere::Now()) const;

 private:
  SQLCmd cmds_;
  bool fits_ = true;
};

// True for a store that got its handler (status 0); else "Open domainDBHandler cannot open before".
bool IsOpen(int status, SourceHere here = SourceHere::Now());

// Replaces `rows` by the result of one query, every row at least `columns` long. Otherwise false,
// `rows` empty: "failed to ExecSelectCmd", also for a result that is narrower.
bool Select(DomainDBHandler* handler, const std::string& sql, size_t columns, Rows& rows,
            SourceHere here = SourceHere::Now());
// The first cell of the last row, untouched when there is no row.
bool SelectCell(DomainDBHandler* handler, const std::string& sql, std::string& cell,
                SourceHere here = SourceHere::Now());

// A cell as a number. False with `value` untouched and "Failed to stoi [%s]", "failed to convert %s
// to uid" or "failed to convert %s to gid" logged.
bool ReadInt(const std::string& cell, int& value, SourceHere here = SourceHere::Now());
bool ReadUID(const std::string& cell, unsigned int& uid, SourceHere here = SourceHere::Now());
bool ReadGID(const std::string& cell, unsigned int& gid, SourceHere here = SourceHere::Now());

// One column of every row of a query, appended to `ids` up to the first bad value.
bool SelectUIDs(DomainDBHandler* handler, const std::string& sql, size_t column,
                std::vector<unsigned int>& uids, SourceHere here = SourceHere::Now());
bool SelectGIDs(DomainDBHandler* handler, const std::string& sql, size_t column,
                std::vector<unsigned int>& gids, SourceHere here = SourceHere::Now());

// A BOOLEAN cell: everything but "0", the empty text of NULL included.
inline bool ReadFlag(const std::string& cell) {
  return cell != "0";
}

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_STATEMENT_H
