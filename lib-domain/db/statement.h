// What every store does alike: formatting statements, reading rows, the open-handler test.
#ifndef LIB_DOMAIN_DB_STATEMENT_H
#define LIB_DOMAIN_DB_STATEMENT_H

#include <string>
#include <vector>

namespace MDOMAIN::DB::INTERNAL {

// Longest statement, in bytes.
constexpr int kStatementSize = 1000000;

// sqlite3_snprintf ("%q" doubles single quotes) into a buffer of kStatementSize bytes.
std::string FormatStatement(const char* format, ...);

// Cuts a list of ids into texts joined by ",", each short enough for one statement. An empty list
// gives one empty text.
std::vector<std::string> JoinIdsInPieces(const std::vector<unsigned int>& ids);
std::vector<std::string> JoinIdsInPieces(const std::vector<int>& ids);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_STATEMENT_H
