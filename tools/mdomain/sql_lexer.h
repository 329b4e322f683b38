// The words of an SQL dump, one after the other.
#ifndef TOOLS_MDOMAIN_SQL_LEXER_H
#define TOOLS_MDOMAIN_SQL_LEXER_H

#include <string>
#include <string_view>

#include "tools/mdomain/sql_dump.h"

namespace mdomain {

struct SqlToken {
  enum class Kind { kWord, kName, kText, kSymbol, kEnd };

  Kind kind;
  std::string text;  // without quotes
  size_t line;

  // A symbol, or a word in any letter case that is not quoted.
  bool Is(std::string_view wanted) const;
};

class SqlLexer {
 public:
  explicit SqlLexer(std::string_view text);

  // Without comments; kEnd at the end. Throws BadSqlDump for what does not end.
  SqlToken Next();
  // What is left of the line, and the next one. False at the end of the text.
  bool NextLine(std::string_view& line);
  size_t line() const { return line_; }
  bool IsAtStartOfLine() const { return at_ == 0 || text_[at_ - 1] == '\n'; }

 private:
  char Peek(size_t ahead = 0) const;
  void Advance(size_t count);
  void SkipTo(std::string_view end, const char* what);
  bool SkipComment();
  void SkipBlanks();
  SqlToken Quoted(SqlToken::Kind kind, bool has_escapes);
  SqlToken Dollars();
  SqlToken Word();

  std::string_view text_;
  size_t at_ = 0;
  size_t line_ = 1;
  bool is_mysql_;  // a backslash in a text escapes
};

// What stands behind a backslash in a text, in MySQL's way and that of PostgreSQL's COPY; the
// character itself where it means nothing.
char UnescapedSql(char c);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SQL_LEXER_H
