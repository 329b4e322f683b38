#include "lib-domain/db/sql.h"

#include <string_view>

#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB::INTERNAL {

namespace {

constexpr size_t kSurelyShort = kStatementSize / 4;
// More formats than there are; whoever makes them up shall not fill the memory.
constexpr size_t kMostKept = 128;

}  // namespace

std::string Sql::Text() const {
  if (!IsKept()) {
    return text_;
  }
  std::vector<std::string> cells;
  cells.reserve(values_.size());
  for (const Value& value : values_) {
    const auto* const text = std::get_if<std::string>(&value);
    cells.push_back(text == nullptr ? std::to_string(std::get<sqlite3_int64>(value)) : *text);
  }
  return WithValues(format_, cells);
}

bool Sql::Fits() const {
  size_t size = 0;
  for (const Value& value : values_) {
    const auto* const text = std::get_if<std::string>(&value);
    size += text == nullptr ? 0 : text->size();
  }
  return IsKept() && size < kSurelyShort ? true : !Text().empty();
}

bool Sql::Bind(korvmailserver::Statement& statement) const {
  int parameter = 0;
  bool is_bound = true;
  for (const Value& value : values_) {
    ++parameter;
    is_bound =
        std::visit([&](const auto& plain) { return statement.Bind(parameter, plain); }, value) &&
        is_bound;
  }
  return is_bound;
}

void KeptStatements::Clear() {
  idle_.clear();
  ++clearings_;
}

StatementLoan::StatementLoan(std::shared_ptr<KeptStatements> kept, sqlite3* db, const Sql& sql)
    : kept_(std::move(kept)), clearings_(kept_->clearings_) {
  const auto idle = kept_->idle_.find(std::string_view(sql.Format()));
  if (idle != kept_->idle_.end()) {
    statement_ = kept_->idle_.extract(idle);
    return;
  }
  KeptStatements::ByFormat made;
  made[sql.Format()] =
      std::make_unique<korvmailserver::Statement>(db, WithParameters(sql.Format()));
  statement_ = made.extract(made.begin());
}

StatementLoan::~StatementLoan() {
  if (is_spoilt_) {
    kept_->Clear();
  }
  if (clearings_ != kept_->clearings_) {
    return;
  }
  Get().Reset();
  Get().DropValues();
  if (kept_->idle_.size() >= kMostKept) {
    kept_->idle_.clear();
  }
  kept_->idle_.insert(std::move(statement_));
}

}  // namespace MDOMAIN::DB::INTERNAL
