// The registry's schema and statements.
#include "lib-domain/db/email_owner.h"

#include <algorithm>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/db/database.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB {

using korvmailserver::Statement;

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS domain_part(domain_name TEXT PRIMARY KEY, domain_idx INTEGER NOT "
    "NULL );CREATE TABLE IF NOT EXISTS local_part(local_part TEXT NOT NULL, domain_idx INTEGER NOT "
    "NULL, user_name TEXT NOT NULL, PRIMARY KEY (local_part, domain_idx));";

// The primary keys compare bytes; a look-up ignores case and would read whole tables. Rows that
// differ in case only stand in insertion order in these indexes as in the tables, so which of them
// is found first does not change.
constexpr const char* kIndexes[] = {
    "CREATE INDEX IF NOT EXISTS IDX_local_part_nocase ON local_part(domain_idx, local_part COLLATE "
    "NOCASE)",
    "CREATE INDEX IF NOT EXISTS IDX_domain_part_nocase ON domain_part(domain_name COLLATE NOCASE)",
};

constexpr const char* kInsertLocalPart =
    "INSERT OR IGNORE INTO local_part (local_part, domain_idx, user_name) VALUES (?1, ?2, ?3)";
constexpr const char* kInsertDomainPart =
    "INSERT OR IGNORE INTO domain_part (domain_name, domain_idx) VALUES (?1, ?2)";
constexpr const char* kSelectOwner =
    "SELECT user_name FROM local_part WHERE local_part = ?1 COLLATE NOCASE AND domain_idx = "
    "(SELECT domain_idx FROM domain_part WHERE domain_name = ?2 COLLATE NOCASE LIMIT 1)";

bool HoldsZeroByte(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

bool HoldsZeroByte(const RECORD::LocalPart& part) {
  return HoldsZeroByte(part.GetLocalPart()) || HoldsZeroByte(part.GetUserName());
}

bool HoldsZeroByte(const RECORD::DomainPart& part) {
  return HoldsZeroByte(part.GetDomainName());
}

void Bind(Statement& insert, const RECORD::LocalPart& part) {
  insert.Bind(1, part.GetLocalPart());
  insert.Bind(2, part.GetDomainIdx());
  insert.Bind(3, part.GetUserName());
}

void Bind(Statement& insert, const RECORD::DomainPart& part) {
  insert.Bind(1, part.GetDomainName());
  insert.Bind(2, part.GetDomainIdx());
}

template <typename Part>
bool Insert(DBHandler& registry, const char* sql, const std::vector<Part>& parts,
            const char* cannot_format, const char* cannot_insert,
            INTERNAL::SourceHere here = INTERNAL::SourceHere::Now()) {
  if (std::any_of(parts.begin(), parts.end(),
                  [](const Part& part) { return HoldsZeroByte(part); })) {
    LOG_ERROR_AT(here.file, here.line, "%s", cannot_format);
    return false;
  }
  const auto insert_all = [sql, &parts](sqlite3* db) {
    Statement insert(db, sql);
    int result = SQLITE_DONE;
    for (auto part = parts.begin(); part != parts.end() && result == SQLITE_DONE; ++part) {
      Bind(insert, *part);
      result = insert.Step();
      insert.Reset();
    }
    return result == SQLITE_DONE ? SQLITE_OK : result;
  };
  const std::vector<SqlStep> steps =
      parts.empty() ? std::vector<SqlStep>() : std::vector<SqlStep>{{sql, insert_all}};
  if (registry.exeSteps(steps) != 0) {
    // A warning, as the one error line is fixed and does not say why.
    MDOMAIN_LOG_AT(BASE::kLogWarning, here.file, here.line, "Cannot write to database [%s]: %s",
                   registry.GetPath().c_str(), registry.GetErrText().c_str());
    LOG_ERROR_AT(here.file, here.line, "%s", cannot_insert);
    return false;
  }
  return true;
}

}  // namespace

EmailOwner::EmailOwner() : EmailOwner(PATHS::EmailOwnerDb()) {}

EmailOwner::EmailOwner(const std::string& path) : DBHandler(path, kSchema) {
  _Open();
}

EmailOwner::~EmailOwner() {
  get_owner_.reset();
  disconnect();
}

bool EmailOwner::CreateLocalPart(const std::vector<RECORD::LocalPart>& parts) {
  return _IsOpen() && Insert(*this, kInsertLocalPart, parts, "fail to create insert local_part cmd",
                             "fail to insert local_part table");
}

bool EmailOwner::CreateDomainPart(const std::vector<RECORD::DomainPart>& parts) {
  return _IsOpen() && Insert(*this, kInsertDomainPart, parts, "fail to create insert cmd",
                             "fail to insert domain_name table");
}

bool EmailOwner::GetOwner(const std::string& local_part, const std::string& domain_name,
                          std::string& user_name) {
  if (!_IsOpen()) {
    return false;
  }
  user_name.clear();
  const bool was_kept = get_owner_ != nullptr;
  int result = SQLITE_OK;
  if (!_StepGetOwner(local_part, domain_name, result)) {
    return false;
  }
  if (was_kept && (result == SQLITE_ERROR || result == SQLITE_SCHEMA)) {
    // The tables changed under the statement that was kept; a new one tells what is wrong.
    get_owner_.reset();
    if (!_StepGetOwner(local_part, domain_name, result)) {
      return false;
    }
  }
  if (result != SQLITE_ROW && result != SQLITE_DONE) {
    LOG_ERROR("sqlite3_step error, %s", get_owner_->Error());
    get_owner_.reset();
    return false;
  }
  if (result == SQLITE_ROW) {
    user_name = get_owner_->Text(0);
  }
  get_owner_->Reset();
  return true;
}

void EmailOwner::_Open() {
  status_ = connect();
  was_open_ = was_open_ || status_ == 0;
  for (const char* index : kIndexes) {
    exeCmds({index}, false);
  }
}

// SQLite stays with the file that it opened: once another file has the name, it would answer from
// the old one for good and refuse every write.
void EmailOwner::_FollowReplacedFile() {
  const bool was_lost = status_ != 0 && was_open_;
  if (isReplaced() || was_lost) {
    get_owner_.reset();
    disconnect();
    _Open();
  }
}

bool EmailOwner::_IsOpen() {
  _FollowReplacedFile();
  if (status_ != 0) {
    LOG_ERROR("Open DBHandler cannot open before");
    return false;
  }
  return true;
}

// Runs the look-up to its first row; the result is SQLite's. False with one line, and no statement
// kept, when it could not be prepared or its values not bound.
bool EmailOwner::_StepGetOwner(const std::string& local_part, const std::string& domain_name,
                               int& result) {
  if (get_owner_ == nullptr) {
    get_owner_ = std::make_unique<Statement>(getDB(), kSelectOwner);
  }
  const bool prepared = get_owner_->IsPrepared();
  if (!prepared || !get_owner_->Bind(1, local_part) || !get_owner_->Bind(2, domain_name)) {
    LOG_ERROR("%s", prepared ? "fail to create get owner cmd" : "fail to prepare get owner cmd");
    get_owner_.reset();
    return false;
  }
  result = get_owner_->Step();
  return true;
}

}  // namespace MDOMAIN::DB
