// A query with its values, and the compiled statements that a connection keeps for the next time.
//
// Compiling costs more than what most queries do. A constant text is compiled once per connection:
//   Query<Columns<Text>>(Sql(kSelectName, domain_idx), use)   // kept: values are bound
//   Query<Columns<Text>>(Sql(FormatStatement(...)), use)      // made for this once
#ifndef LIB_DOMAIN_DB_SQL_H
#define LIB_DOMAIN_DB_SQL_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/include/sqlite.h"

namespace MDOMAIN::DB::INTERNAL {

class Sql {
 public:
  // A text that is made for this once: compiled, run and dropped. "" is a query that fails.
  Sql(std::string text) : text_(std::move(text)) {}
  // What FormatStatement gives for the format and these numbers and texts; texts end at their first
  // zero byte. The format is a constant in which each value stands alone (WithParameters), and the
  // connection keeps it compiled. Where a column has an affinity, a bound value finds what the
  // written one finds. A list or a name of a table is no value: use FormatStatement.
  template <typename... Values>
  Sql(const char* format, const Values&... values) : format_(format), values_{_Value(values)...} {}

  bool IsKept() const { return format_ != nullptr; }
  // The constant of a kept one.
  const char* Format() const { return format_; }
  // With its values in their places, as it stands in messages; "" when that is too long.
  std::string Text() const;
  // Whether it is a statement at all.
  bool Fits() const;
  // False when there is no memory.
  bool Bind(korvmailserver::Statement& statement) const;

 private:
  using Value = std::variant<sqlite3_int64, std::string>;

  template <typename Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
  static Value _Value(Number number) {
    return static_cast<sqlite3_int64>(number);
  }
  static Value _Value(const std::string& text) { return text.substr(0, text.find('\0')); }

  const char* format_ = nullptr;
  std::vector<Value> values_;
  std::string text_;
};

// The compiled statements of one connection that nobody uses at the moment, one for each format.
class KeptStatements {
 public:
  // All of them go; what is in use now is dropped when it comes back.
  void Clear();

 private:
  friend class StatementLoan;

  using ByFormat = std::map<std::string, std::unique_ptr<korvmailserver::Statement>, std::less<>>;

  ByFormat idle_;
  unsigned clearings_ = 0;
};

// A statement for one run. It comes back, reset and without values, at the end of the scope. Who
// asks the same within the run gets another one.
class StatementLoan {
 public:
  StatementLoan(std::shared_ptr<KeptStatements> kept, sqlite3* db, const Sql& sql);
  ~StatementLoan();
  StatementLoan(const StatementLoan&) = delete;
  StatementLoan& operator=(const StatementLoan&) = delete;

  korvmailserver::Statement& Get() { return *statement_.mapped(); }
  // After a failure nothing is kept: what the others were compiled for may be gone as well, and
  // then compiling them is what has to fail.
  void Spoil() { is_spoilt_ = true; }

 private:
  std::shared_ptr<KeptStatements> kept_;
  unsigned clearings_;
  KeptStatements::ByFormat::node_type statement_;
  bool is_spoilt_ = false;
};

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_SQL_H
