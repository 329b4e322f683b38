#include "tools/mdomain/sql_lexer.h"

#include <algorithm>
#include <cctype>

#include "platform/include/text.h"

namespace mdomain {
namespace {

constexpr size_t kHeader = 4096;

bool IsWordCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.' || c == '@' ||
         korvmailserver::HasNonAscii({&c, 1});
}

// Who writes texts with backslashes says so in its first lines, or quotes names its own way.
bool IsMysql(std::string_view text) {
  const std::string_view header = text.substr(0, kHeader);
  return header.find("MySQL dump") != std::string_view::npos ||
         header.find("MariaDB dump") != std::string_view::npos ||
         header.find("phpMyAdmin") != std::string_view::npos ||
         text.find("INSERT INTO `") != std::string_view::npos ||
         text.find("REPLACE INTO `") != std::string_view::npos;
}

}  // namespace

bool SqlToken::Is(std::string_view wanted) const {
  return (kind == Kind::kWord || kind == Kind::kSymbol) &&
         korvmailserver::EqualsIgnoreAsciiCase(text, wanted);
}

SqlLexer::SqlLexer(std::string_view text) : text_(text), is_mysql_(IsMysql(text)) {}

char SqlLexer::Peek(size_t ahead) const {
  return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
}

void SqlLexer::Advance(size_t count) {
  const std::string_view passed = text_.substr(at_, count);
  line_ += static_cast<size_t>(std::count(passed.begin(), passed.end(), '\n'));
  at_ += passed.size();
}

void SqlLexer::SkipTo(std::string_view end, const char* what) {
  const size_t found = text_.find(end, at_);
  if (found == std::string_view::npos) {
    throw BadSqlDump(line_, std::string(what) + " that does not end");
  }
  Advance(found + end.size() - at_);
}

bool SqlLexer::NextLine(std::string_view& line) {
  const size_t end = std::min(text_.find('\n', at_), text_.size());
  const bool is_line = at_ < text_.size();
  line = text_.substr(at_, end - at_);
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  Advance(end + 1 - at_);
  return is_line;
}

// Commands of psql and the client of MySQL stand in a line of their own, too.
bool SqlLexer::SkipComment() {
  std::string_view line;
  const bool is_client_command =
      IsAtStartOfLine() && (Peek() == '\\' || korvmailserver::EqualsIgnoreAsciiCase(
                                                  text_.substr(at_, 10), "DELIMITER "));
  const bool is_comment = (Peek() == '-' && Peek(1) == '-') || (is_mysql_ && Peek() == '#');
  if (is_client_command || is_comment) {
    return NextLine(line);
  }
  if (Peek() == '/' && Peek(1) == '*') {
    Advance(2);
    SkipTo("*/", "a comment");
    return true;
  }
  return false;
}

void SqlLexer::SkipBlanks() {
  while (at_ < text_.size()) {
    if (std::isspace(static_cast<unsigned char>(Peek())) != 0) {
      Advance(1);
    } else if (!SkipComment()) {
      return;
    }
  }
}

SqlToken SqlLexer::Quoted(SqlToken::Kind kind, bool has_escapes) {
  SqlToken token{kind, "", line_};
  const char quote = Peek();
  const size_t begin = at_ + 1;
  size_t at = begin;
  for (; at < text_.size(); ++at) {
    if (has_escapes && text_[at] == '\\' && at + 1 < text_.size()) {
      token.text += UnescapedSql(text_[++at]);
    } else if (text_[at] != quote) {
      token.text += text_[at];
    } else if (at + 1 < text_.size() && text_[at + 1] == quote) {
      token.text += text_[at++];
    } else {
      Advance(at + 1 - at_);
      return token;
    }
  }
  throw BadSqlDump(token.line, "a quoted text that does not end");
}

// $$ ... $$ or $tag$ ... $tag$, in which functions stand.
SqlToken SqlLexer::Dollars() {
  SqlToken token{SqlToken::Kind::kSymbol, "$", line_};
  size_t end = at_ + 1;
  while (end < text_.size() &&
         (std::isalnum(static_cast<unsigned char>(text_[end])) != 0 || text_[end] == '_')) {
    ++end;
  }
  if (end >= text_.size() || text_[end] != '$') {
    Advance(1);
    return token;
  }
  const std::string_view tag = text_.substr(at_, end + 1 - at_);
  Advance(tag.size());
  SkipTo(tag, "a text in dollars");
  token.kind = SqlToken::Kind::kText;
  return token;
}

SqlToken SqlLexer::Word() {
  SqlToken token{SqlToken::Kind::kWord, "", line_};
  size_t end = at_;
  while (end < text_.size() && IsWordCharacter(text_[end]) &&
         (text_[end] != '.' || std::isdigit(static_cast<unsigned char>(text_[at_])) != 0)) {
    ++end;
  }
  token.text = text_.substr(at_, end - at_);
  Advance(end - at_);
  return token;
}

SqlToken SqlLexer::Next() {
  SkipBlanks();
  const char c = Peek();
  if (at_ >= text_.size()) {
    return {SqlToken::Kind::kEnd, "", line_};
  }
  if (c == '\'') {
    return Quoted(SqlToken::Kind::kText, is_mysql_);
  }
  if ((c == 'E' || c == 'e') && Peek(1) == '\'') {
    Advance(1);
    return Quoted(SqlToken::Kind::kText, true);
  }
  if (c == '`' || c == '"') {
    return Quoted(SqlToken::Kind::kName, false);
  }
  if (c == '$') {
    return Dollars();
  }
  if (IsWordCharacter(c) && c != '.') {
    return Word();
  }
  SqlToken token{SqlToken::Kind::kSymbol, {c}, line_};
  Advance(1);
  return token;
}

char UnescapedSql(char c) {
  constexpr std::string_view kFrom = "0bfnrtvZ";
  constexpr std::string_view kTo{"\0\b\f\n\r\t\v\x1a", 8};
  const size_t at = kFrom.find(c);
  return at == std::string_view::npos ? c : kTo[at];
}

}  // namespace mdomain
