// Statement texts that fit into one statement, or none.
#include "lib-domain/db/statement.h"

#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <map>

#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// Room for everything of a statement that is not its id list.
constexpr size_t kHeadSize = 4096;

// `format` with what `text_of` gives in the place of each value that stands alone.
template <typename TextOf>
std::string Replace(const char* format, const TextOf& text_of) {
  constexpr std::string_view kValues[] = {"'%q'", "'%d'", "'%u'", "%d", "%u"};
  std::string text;
  for (std::string_view rest = format; !rest.empty();) {
    const auto* const value =
        std::find_if(std::begin(kValues), std::end(kValues), [rest](std::string_view candidate) {
          return rest.substr(0, candidate.size()) == candidate;
        });
    const bool is_value = value != std::end(kValues);
    text += is_value ? text_of(*value) : std::string(1, rest.front());
    rest.remove_prefix(is_value ? value->size() : 1);
  }
  return text;
}

const char* FormatWith(std::map<const char*, std::string>& made, const char* format,
                       const char* place) {
  constexpr std::string_view kList = "(%q)";
  std::string& with = made[format];
  if (with.empty()) {
    with = format;
    with.replace(with.find(kList), kList.size(), place);
  }
  return with.c_str();
}

}  // namespace

std::string FormatStatement(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string statement = korvmailserver::FormatSqlV(format, arguments);
  va_end(arguments);
  if (statement.size() >= kStatementSize) {
    statement.clear();
  }
  return statement;
}

std::string EscapeQuery(const std::string& query) {
  std::string escaped;
  for (const char c : query) {
    const size_t width = c == '\'' ? 2 : 1;
    // A zero byte ends the text, as it ends every C string that SQLite formats.
    if (c == '\0' || escaped.size() + width >= kStatementSize) {
      break;
    }
    escaped.append(width, c);
  }
  return escaped;
}

// Begins no search text that a person types: no name holds control characters.
constexpr std::string_view kLiteralMark = "\x1b\x1b";

std::string LiteralQuery(const std::string& text) {
  return text.empty() ? "" : std::string(kLiteralMark) + text;
}

std::string Like(const std::string& column, const std::string& query) {
  if (query.rfind(kLiteralMark, 0) != 0) {
    return column + " LIKE '%" + EscapeQuery(query) + "%'";
  }
  std::string pattern;
  for (const char c : query.substr(kLiteralMark.size())) {
    pattern += c == '%' || c == '_' || c == '\\' ? "\\" : "";
    pattern += c;
  }
  return column + " LIKE '%" + EscapeQuery(pattern) + "%' ESCAPE '\\'";
}

std::string WithParameters(const char* format) {
  return Replace(format, [](std::string_view /*value*/) { return "?"; });
}

std::string WithValues(const char* format, const std::vector<std::string>& values) {
  auto next = values.begin();
  std::string statement = Replace(format, [&](std::string_view value) {
    const std::string quote = value.front() == '\'' ? "'" : "";
    return quote + korvmailserver::FormatSql("%q", (next++)->c_str()) + quote;
  });
  if (statement.size() >= kStatementSize) {
    statement.clear();
  }
  return statement;
}

template <typename Id>
std::vector<std::string> JoinIdsInPieces(const std::vector<Id>& ids) {
  std::vector<std::string> pieces(1);
  for (const Id& id : ids) {
    const std::string text = std::to_string(id);
    if (pieces.back().size() + 1 + text.size() > kStatementSize - kHeadSize) {
      pieces.emplace_back();
    }
    if (!pieces.back().empty()) {
      pieces.back() += ',';
    }
    pieces.back() += text;
  }
  return pieces;
}

std::string JsonList(const std::vector<unsigned int>& ids) {
  std::string list;
  for (const unsigned int id : ids) {
    list += (list.empty() ? '[' : ',') + std::to_string(id);
  }
  return ids.empty() ? "[]" : list + "]";
}

std::string JsonList(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) {
    list += list.empty() ? "[\"" : ",\"";
    for (const char* c = text.c_str(); *c != '\0'; ++c) {
      const auto byte = static_cast<unsigned char>(*c);
      if (byte < ' ') {
        list += korvmailserver::FormatSql("\\u%04x", byte);
      } else {
        list.append(*c == '"' || *c == '\\' ? "\\" : "").push_back(*c);
      }
    }
    list += '"';
  }
  return texts.empty() ? "[]" : list + "]";
}

const char* FormatOfOne(const char* format) {
  static auto& made = *new std::map<const char*, std::string>();
  return FormatWith(made, format, "(%d)");
}

const char* FormatOfList(const char* format) {
  static auto& made = *new std::map<const char*, std::string>();
  return FormatWith(made, format, "(SELECT value FROM json_each('%q'))");
}

void StatementBatch::AddKept(const Sql& sql) {
  fits_ = fits_ && sql.Fits();
  const auto run = [sql, place = kept_](sqlite3* db) {
    StatementLoan loan(*place, db, sql);
    if (loan.Get().IsPrepared()) {
      sql.Bind(loan.Get());
    }
    int result = loan.Get().Step();
    while (result == SQLITE_ROW) {
      result = loan.Get().Step();
    }
    if (result == SQLITE_DONE) {
      return SQLITE_OK;
    }
    loan.Spoil();
    return result;
  };
  steps_.push_back({sql.Text(), run});
}

template std::vector<std::string> JoinIdsInPieces(const std::vector<int>& ids);
template std::vector<std::string> JoinIdsInPieces(const std::vector<unsigned int>& ids);

}  // namespace MDOMAIN::DB::INTERNAL
