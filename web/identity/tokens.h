// Tokens by which programs act for a person who made them: shown once, stored as digests.
#ifndef MDOMAIN_WEB_IDENTITY_TOKENS_H
#define MDOMAIN_WEB_IDENTITY_TOKENS_H

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct sqlite3;

namespace mdomain_web {

struct Token {
  long long id = 0;
  std::uint32_t uid = 0;
  std::string account;  // as the host names the account
  std::string label;    // what the person calls it
  bool may_change = false;
  long long made = 0;  // seconds since 1970, as below
  long long ends = 0;
  long long used = 0;  // 0: never; to the hour
};

// In one file, which several processes may use. What fails throws std::runtime_error that names the
// file. For several threads.
class Tokens final {
 public:
  // Makes the file (0600) when it is missing.
  explicit Tokens(const std::string& file);
  ~Tokens();
  Tokens(const Tokens&) = delete;
  Tokens& operator=(const Tokens&) = delete;

  // The secret, which nothing tells again. `made` and `id` are filled in.
  std::string Make(Token& token);
  // None for a secret that nobody has, or whose time has ended.
  std::optional<Token> Find(const std::string& secret);
  std::vector<Token> ListOf(std::uint32_t uid);
  // False where the person has no such token.
  bool Revoke(std::uint32_t uid, long long id);

 private:
  class Statement;

  const std::string file_;
  std::mutex mutex_;
  sqlite3* database_ = nullptr;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_IDENTITY_TOKENS_H
