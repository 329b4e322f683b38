// A prepared SQLite statement that is finalised when its scope ends.
#ifndef PLATFORM_KEYSTORE_STATEMENT_H
#define PLATFORM_KEYSTORE_STATEMENT_H

#include <sqlite3.h>

#include <string>

namespace korvmailserver {

class Statement {
 public:
  // A text that does not compile gives a statement whose steps fail.
  Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  // The text must live until the next Reset.
  void Bind(int position, const std::string& text) {
    sqlite3_bind_text(statement_, position, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
  }
  // SQLITE_ROW, SQLITE_DONE, or an error.
  int Step() { return statement_ == nullptr ? SQLITE_ERROR : sqlite3_step(statement_); }
  void Reset() { sqlite3_reset(statement_); }
  int Columns() const { return sqlite3_column_count(statement_); }
  int Int(int column) const { return sqlite3_column_int(statement_, column); }
  std::string Text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    const int size = sqlite3_column_bytes(statement_, column);
    return bytes == nullptr ? std::string() : std::string(bytes, static_cast<size_t>(size));
  }

 private:
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_STATEMENT_H
