#include "web/identity/tokens.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <syslog.h>

#include <ctime>
#include <stdexcept>

#include "web/identity/secrets.h"

namespace mdomain_web {

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS token(id INTEGER PRIMARY KEY AUTOINCREMENT, digest TEXT UNIQUE, "
    "uid "
    "INTEGER, account TEXT, label TEXT, may_change INTEGER, made INTEGER, ends INTEGER, used "
    "INTEGER)";
constexpr const char* kColumns = "id, uid, account, label, may_change, made, ends, used";
constexpr int kBusyMilliseconds = 5000;
constexpr long long kHour = 3600;
// People see what they sign away by: secrets of this program begin so.
constexpr const char* kBegin = "mdomain_";

}  // namespace

class Tokens::Statement final {
 public:
  Statement(Tokens& tokens, const std::string& sql) : tokens_(tokens) {
    if (sqlite3_prepare_v2(tokens.database_, sql.c_str(), -1, &statement_, nullptr) != SQLITE_OK) {
      Fail();
    }
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(long long number) {
    sqlite3_bind_int64(statement_, ++bound_, number);
    return *this;
  }
  Statement& Bind(const std::string& text) {
    sqlite3_bind_text(statement_, ++bound_, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
  }
  bool Step() {
    const int status = sqlite3_step(statement_);
    if (status != SQLITE_ROW && status != SQLITE_DONE) {
      Fail();
    }
    return status == SQLITE_ROW;
  }
  Token Row() const {
    const auto number = [this](int at) { return sqlite3_column_int64(statement_, at); };
    const auto text = [this](int at) {
      const auto* begin = reinterpret_cast<const char*>(sqlite3_column_text(statement_, at));
      return std::string(begin == nullptr ? "" : begin);
    };
    return {number(0),      static_cast<std::uint32_t>(number(1)),
            text(2),        text(3),
            number(4) != 0, number(5),
            number(6),      number(7)};
  }

 private:
  [[noreturn]] void Fail() const {
    throw std::runtime_error(tokens_.file_ + ": " + sqlite3_errmsg(tokens_.database_));
  }

  Tokens& tokens_;
  sqlite3_stmt* statement_ = nullptr;
  int bound_ = 0;
};

Tokens::Tokens(const std::string& file) : file_(file) {
  const mode_t before = umask(077);
  const int status = sqlite3_open(file.c_str(), &database_);
  umask(before);
  sqlite3_busy_timeout(database_, kBusyMilliseconds);
  std::string problem;
  if (status != SQLITE_OK ||
      sqlite3_exec(database_, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
    problem = file + ": " + sqlite3_errmsg(database_);
    sqlite3_close(database_);
    throw std::runtime_error(problem);
  }
}

Tokens::~Tokens() {
  sqlite3_close(database_);
}

std::string Tokens::Make(Token& token) {
  std::string secret = kBegin + NewSecret();
  const std::lock_guard<std::mutex> lock(mutex_);
  token.made = time(nullptr);
  Statement(*this,
            "INSERT INTO token(digest, uid, account, label, may_change, made, ends, used) "
            "VALUES(?, ?, ?, ?, ?, ?, ?, 0)")
      .Bind(Digest(secret))
      .Bind(token.uid)
      .Bind(token.account)
      .Bind(token.label)
      .Bind(token.may_change ? 1 : 0)
      .Bind(token.made)
      .Bind(token.ends)
      .Step();
  token.id = sqlite3_last_insert_rowid(database_);
  return secret;
}

std::optional<Token> Tokens::Find(const std::string& secret) {
  const long long now = time(nullptr);
  const std::lock_guard<std::mutex> lock(mutex_);
  Token token;
  {
    Statement found(*this, std::string("SELECT ") + kColumns + " FROM token WHERE digest = ?");
    if (!found.Bind(Digest(secret)).Step()) {
      return std::nullopt;
    }
    token = found.Row();
  }
  if (token.ends <= now) {
    return std::nullopt;
  }
  // Once an hour: reading costs no write.
  if (token.used + kHour <= now) {
    token.used = now - now % kHour;
    try {
      Statement(*this, "UPDATE token SET used = ? WHERE id = ?")
          .Bind(token.used)
          .Bind(token.id)
          .Step();
    } catch (const std::runtime_error& error) {  // a full disk keeps nobody from reading
      syslog(LOG_MAIL | LOG_WARNING, "when a token was used is not noted: %s", error.what());
    }
  }
  return token;
}

std::vector<Token> Tokens::ListOf(std::uint32_t uid) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Statement list(*this,
                 std::string("SELECT ") + kColumns + " FROM token WHERE uid = ? ORDER BY id");
  list.Bind(uid);
  std::vector<Token> tokens;
  while (list.Step()) {
    tokens.push_back(list.Row());
  }
  return tokens;
}

bool Tokens::Revoke(std::uint32_t uid, long long id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Statement(*this, "DELETE FROM token WHERE id = ? AND uid = ?").Bind(id).Bind(uid).Step();
  return sqlite3_changes(database_) == 1;
}

}  // namespace mdomain_web
