#include "tools/mdomain/sql_dump.h"

#include <algorithm>

#include "platform/include/text.h"
#include "tools/mdomain/sql_lexer.h"

namespace mdomain {
namespace {

using Kind = SqlToken::Kind;
using Value = std::optional<std::string>;

constexpr int kMostNested = 8;
constexpr size_t kEnds = 4096;

// First and last lines by which a program shows that its dump is whole.
constexpr struct {
  std::string_view first, last;
} kFrames[] = {{"-- MySQL dump", "-- Dump completed"},
               {"-- MariaDB dump", "-- Dump completed"},
               {"-- PostgreSQL database dump", "-- PostgreSQL database dump complete"},
               {"PRAGMA foreign_keys=OFF;\nBEGIN TRANSACTION;", "COMMIT;"}};

void RequireWhole(std::string_view text) {
  const std::string_view begin = text.substr(0, kEnds);
  const std::string_view end = text.size() > kEnds ? text.substr(text.size() - kEnds) : text;
  for (const auto& frame : kFrames) {
    if (begin.find(frame.first) != std::string_view::npos &&
        end.find(frame.last) == std::string_view::npos) {
      const auto lines = std::count(text.begin(), text.end(), '\n');
      throw BadSqlDump(
          static_cast<size_t>(lines) + 1,
          "the dump is cut short: it does not end with \"" + std::string(frame.last) + "\"");
    }
  }
}

class Reader {
 public:
  Reader(std::string_view text, const std::set<std::string>& tables)
      : lexer_(text), wanted_(tables) {
    Step();
  }

  std::map<std::string, SqlTable> Read() {
    while (token_.kind != Kind::kEnd) {
      Statement();
    }
    return std::move(tables_);
  }

 private:
  void Step() { token_ = lexer_.Next(); }

  bool Take(std::string_view word) {
    const bool is_there = token_.Is(word);
    if (is_there) {
      Step();
    }
    return is_there;
  }

  [[noreturn]] void Bad(const std::string& what) const { throw BadSqlDump(token_.line, what); }

  void Require(std::string_view word) {
    if (!Take(word)) {
      Bad("\"" + std::string(word) + "\" is missing");
    }
  }

  std::string Name() {
    if (token_.kind != Kind::kWord && token_.kind != Kind::kName) {
      Bad("a name is missing");
    }
    std::string name = korvmailserver::ToLowerAscii(token_.text);
    Step();
    return name;
  }

  // Of a table, without database and schema.
  std::string TableName() {
    std::string name = Name();
    while (Take(".")) {
      name = Name();
    }
    return name;
  }

  void SkipStatement() {
    while (!token_.Is(";")) {
      if (token_.kind == Kind::kEnd) {
        Bad("the dump ends within a statement");
      }
      Step();
    }
    Step();
  }

  // With statements between BEGIN and END (SQLite) that end with semicolons of their own.
  void SkipTrigger() {
    while (!token_.Is(";") && !token_.Is("BEGIN") && token_.kind != Kind::kEnd) {
      Step();
    }
    if (token_.Is("BEGIN")) {
      while (!token_.Is("END") && token_.kind != Kind::kEnd) {
        Step();
      }
    }
    SkipStatement();
  }

  void Statement() {
    if (Take(";")) {
      return;
    }
    if (Take("CREATE")) {
      Create();
    } else if (Take("INSERT") || Take("REPLACE")) {
      Insert();
    } else if (Take("COPY")) {
      Copy();
    } else {
      SkipStatement();
    }
  }

  void Create() {
    while (!token_.Is("TABLE") && !token_.Is("TRIGGER") && !token_.Is(";") && !token_.Is("(") &&
           token_.kind == Kind::kWord) {
      Step();
    }
    if (Take("TRIGGER")) {
      SkipTrigger();
      return;
    }
    if (Take("TABLE")) {
      if (Take("IF")) {
        Require("NOT");
        Require("EXISTS");
      }
      const std::string name = TableName();
      if (wanted_.count(name) != 0) {
        if (!tables_.emplace(name, SqlTable()).second) {
          Bad("a second table \"" + name + "\": one database alone can be read");
        }
        Definitions(tables_[name]);
      }
    }
    SkipStatement();
  }

  // Each begins with the name of a column, but for keys and conditions.
  void Definitions(SqlTable& table) {
    Require("(");
    while (true) {
      const bool is_other = token_.Is("PRIMARY") || token_.Is("KEY") || token_.Is("UNIQUE") ||
                            token_.Is("CONSTRAINT") || token_.Is("FOREIGN") || token_.Is("INDEX") ||
                            token_.Is("CHECK") || token_.Is("FULLTEXT");
      if (!is_other) {
        table.columns.push_back(Name());
      }
      for (int depth = 0; depth > 0 || (!token_.Is(",") && !token_.Is(")")); Step()) {
        if (token_.kind == Kind::kEnd || token_.Is(";")) {
          Bad("a table that does not end");
        }
        depth += token_.Is("(") ? 1 : token_.Is(")") ? -1 : 0;
      }
      if (!Take(",")) {
        return;
      }
    }
  }

  std::vector<std::string> ColumnNames() {
    std::vector<std::string> names;
    Require("(");
    do {
      names.push_back(Name());
    } while (Take(","));
    Require(")");
    return names;
  }

  // The table whose rows follow; null where nobody wants it.
  SqlTable* Filled(const std::string& name, const std::vector<std::string>& columns) {
    if (wanted_.count(name) == 0) {
      return nullptr;
    }
    SqlTable& table = tables_[name];
    if (table.rows.empty() && !columns.empty()) {
      table.columns = columns;
    }
    if (table.columns.empty()) {
      Bad("rows of table \"" + name + "\", whose columns stand nowhere before");
    }
    if (!columns.empty() && columns != table.columns) {
      Bad("rows of table \"" + name + "\" with other columns than those before");
    }
    return &table;
  }

  void Insert() {
    while (!token_.Is("INTO") && token_.kind == Kind::kWord) {
      Step();  // IGNORE, OR REPLACE
    }
    Require("INTO");
    const std::string name = TableName();
    if (wanted_.count(name) == 0) {
      SkipStatement();
      return;
    }
    const std::vector<std::string> columns =
        token_.Is("(") ? ColumnNames() : std::vector<std::string>();
    SqlTable* table = Filled(name, columns);
    Require("VALUES");
    do {
      table->rows.push_back(Row(table->columns.size()));
    } while (Take(","));
    SkipStatement();
  }

  SqlRow Row(size_t columns) {
    SqlRow row{token_.line, {}};
    Require("(");
    do {
      row.values.push_back(ReadValue(0));
    } while (Take(",") && row.values.size() < columns);
    Require(")");
    RequireAll(row, columns);
    return row;
  }

  static void RequireAll(const SqlRow& row, size_t columns) {
    if (row.values.size() != columns) {
      throw BadSqlDump(row.line, "a row of " + std::to_string(row.values.size()) + " values for " +
                                     std::to_string(columns) + " columns");
    }
  }

  Value ReadValue(int depth) {
    if (token_.kind == Kind::kText) {
      std::string text = token_.text;
      Step();
      return text;
    }
    if (Take("NULL")) {
      return std::nullopt;
    }
    if (token_.Is("TRUE") || token_.Is("FALSE")) {
      const bool is_true = token_.Is("TRUE");
      Step();
      return is_true ? "1" : "0";
    }
    if (depth < kMostNested && Take("replace")) {
      return Replaced(depth);
    }
    const std::string sign = Take("-") ? "-" : "";
    const bool is_number = token_.kind == Kind::kWord &&
                           token_.text.find_first_not_of("0123456789.") == std::string::npos;
    if (!is_number) {
      Bad("a value that is neither a text nor a number nor NULL");
    }
    std::string number = sign + token_.text;
    Step();
    return number;
  }

  // replace('a\nb','\n',char(10)): how the sqlite3 shell writes line ends.
  Value Replaced(int depth) {
    Require("(");
    Value text = ReadValue(depth + 1);
    Require(",");
    const Value from = ReadValue(depth + 1);
    Require(",");
    Require("char");
    Require("(");
    const bool is_return = token_.Is("13");
    if (!is_return && !token_.Is("10")) {
      Bad("a character that is no line end");
    }
    Step();
    Require(")");
    Require(")");
    if (!text || !from || from->empty()) {
      Bad("a replacement without a text");
    }
    const char to = is_return ? '\r' : '\n';
    for (size_t at = text->find(*from); at != std::string::npos; at = text->find(*from, at + 1)) {
      text->replace(at, from->size(), 1, to);
    }
    return text;
  }

  // COPY name (columns) FROM stdin; and then a line for each row, up to "\.".
  void Copy() {
    const std::string name = TableName();
    const std::vector<std::string> columns =
        token_.Is("(") ? ColumnNames() : std::vector<std::string>();
    Require("FROM");
    Require("stdin");
    if (!token_.Is(";")) {
      Bad("rows in another form than that of pg_dump");
    }
    SqlTable* table = Filled(name, columns);
    std::string_view line;
    lexer_.NextLine(line);
    while (true) {
      const size_t number = lexer_.line();
      if (!lexer_.NextLine(line)) {
        throw BadSqlDump(number, "the dump ends within the rows of table \"" + name + "\"");
      }
      if (line == "\\.") {
        break;
      }
      if (table != nullptr) {
        table->rows.push_back(CopiedRow(line, number));
        RequireAll(table->rows.back(), table->columns.size());
      }
    }
    Step();
  }

  static SqlRow CopiedRow(std::string_view line, size_t number) {
    SqlRow row{number, {""}};
    for (size_t at = 0; at < line.size(); ++at) {
      if (line[at] == '\t') {
        row.values.emplace_back("");
      } else if (line[at] != '\\' || at + 1 == line.size()) {
        *row.values.back() += line[at];
      } else if (line[++at] == 'N' && row.values.back()->empty() &&
                 (at + 1 == line.size() || line[at + 1] == '\t')) {
        row.values.back().reset();
      } else {
        *row.values.back() += UnescapedSql(line[at]);
      }
    }
    return row;
  }

  SqlLexer lexer_;
  const std::set<std::string>& wanted_;
  std::map<std::string, SqlTable> tables_;
  SqlToken token_{Kind::kEnd, "", 1};
};

}  // namespace

std::map<std::string, SqlTable> ReadSqlDump(std::string_view text,
                                            const std::set<std::string>& tables) {
  RequireWhole(text);
  return Reader(text, tables).Read();
}

}  // namespace mdomain
