// Formatting, batches and row reading, logged in the name of the store that calls.
#include "lib-domain/db/statement.h"

#include <sqlite3.h>

#include <cstdarg>

#include "lib-domain/base/error_code.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

// Room for everything of a statement that is not its id list.
constexpr size_t kHeadSize = 4096;

std::string FormatV(const char* format, va_list args) {
  char* text = sqlite3_vmprintf(format, args);
  if (text == nullptr) {
    return "";
  }
  std::string statement = text;
  sqlite3_free(text);
  return statement.size() < kStatementSize ? statement : "";
}

template <typename Id>
std::vector<std::string> JoinInPieces(const std::vector<Id>& ids) {
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

using ReadId = bool (*)(const std::string& cell, unsigned int& id, SourceHere here);

bool SelectIds(DomainDBHandler* handler, const std::string& sql, size_t column, ReadId read,
               std::vector<unsigned int>& ids, SourceHere here) {
  Rows rows;
  if (!Select(handler, sql, column + 1, rows, here)) {
    return false;
  }
  ids.reserve(ids.size() + rows.size());
  for (const Row& row : rows) {
    unsigned int id = 0;
    if (!read(row[column], id, here)) {
      return false;
    }
    ids.push_back(id);
  }
  return true;
}

}  // namespace

std::string FormatStatement(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string statement = FormatV(format, args);
  va_end(args);
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

std::vector<std::string> JoinIdsInPieces(const std::vector<unsigned int>& ids) {
  return JoinInPieces(ids);
}

std::vector<std::string> JoinIdsInPieces(const std::vector<int>& ids) {
  return JoinInPieces(ids);
}

void StatementBatch::Add(const char* format, ...) {
  va_list args;
  va_start(args, format);
  cmds_.push_back(FormatV(format, args));
  va_end(args);
  fits_ = fits_ && !cmds_.back().empty();
}

bool StatementBatch::Run(DBHandler* handler, const char* failure, SourceHere here) const {
  if (fits_ && handler->exeCmds(cmds_, true) == 0) {
    return true;
  }
  // A warning, as the store's one error line is fixed and does not say why.
  MDOMAIN_LOG_AT(BASE::kLogWarning, here.file, here.line, "Cannot write to database [%s]: %s",
                 handler->GetPath().c_str(),
                 fits_ ? handler->GetErrText().c_str() : "a statement is too long");
  LOG_ERROR_AT(here.file, here.line, "%s", failure);
  return false;
}

bool IsOpen(int status, SourceHere here) {
  if (status != 0) {
    LOG_ERROR_AT(here.file, here.line, "Open domainDBHandler cannot open before");
    return false;
  }
  return true;
}

bool Select(DomainDBHandler* handler, const std::string& sql, size_t columns, Rows& rows,
            SourceHere here) {
  rows.clear();
  try {
    if (!sql.empty()) {
      rows = handler->ExecSelectCmd(sql);
      if (rows.empty() || rows.front().size() >= columns) {
        return true;
      }
    }
  } catch (const korvmailserver::LogException&) {
    // It has logged its own line with the reason.
  }
  rows.clear();
  LOG_ERROR_AT(here.file, here.line, "failed to ExecSelectCmd");
  return false;
}

bool SelectCell(DomainDBHandler* handler, const std::string& sql, std::string& cell,
                SourceHere here) {
  Rows rows;
  if (!Select(handler, sql, 1, rows, here)) {
    return false;
  }
  if (!rows.empty()) {
    cell = rows.back()[0];
  }
  return true;
}

bool ReadInt(const std::string& cell, int& value, SourceHere here) {
  if (!BASE::ConvertToInt(cell, value)) {
    LOG_ERROR_AT(here.file, here.line, "Failed to stoi [%s]", cell.c_str());
    return false;
  }
  return true;
}

bool ReadUID(const std::string& cell, unsigned int& uid, SourceHere here) {
  if (!BASE::ConvertToUID(cell, uid)) {
    LOG_ERROR_AT(here.file, here.line, "failed to convert %s to uid", cell.c_str());
    return false;
  }
  return true;
}

bool ReadGID(const std::string& cell, unsigned int& gid, SourceHere here) {
  if (!BASE::ConvertToGID(cell, gid)) {
    LOG_ERROR_AT(here.file, here.line, "failed to convert %s to gid", cell.c_str());
    return false;
  }
  return true;
}

bool SelectUIDs(DomainDBHandler* handler, const std::string& sql, size_t column,
                std::vector<unsigned int>& uids, SourceHere here) {
  return SelectIds(handler, sql, column, ReadUID, uids, here);
}

bool SelectGIDs(DomainDBHandler* handler, const std::string& sql, size_t column,
                std::vector<unsigned int>& gids, SourceHere here) {
  return SelectIds(handler, sql, column, ReadGID, gids, here);
}

}  // namespace MDOMAIN::DB::INTERNAL
