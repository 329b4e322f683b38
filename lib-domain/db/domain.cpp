// The statements of the domain rows, their additional names and the primary marker.
#include "lib-domain/db/domain.h"

#include <limits>
#include <unordered_map>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/statement.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/eai.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;

namespace {

const char* const kDomainTable = "domain_table";
const char* const kAdditionalTable = "domain_to_additional_domain_table";
const char* const kPrimaryTable = "primary_domain_table";
const char* const kDomainView = "domain_view";
const char* const kUserView = "domain_user_view";

// Columns of domain_view.
constexpr size_t kViewColumns = 7;
// Longest additional name that DeleteAdditionalDomains takes, in bytes.
constexpr size_t kMaxNameSize = 2048;

bool ReadDomain(const Row& row, RECORD::Domain& domain, SourceHere here = SourceHere::Now()) {
  int domain_idx = 0;
  if (!ReadInt(row[0], domain_idx, here)) {
    return false;
  }
  domain.SetDomainIdx(domain_idx);
  domain.SetDomainName(row[1]);
  domain.SetDomainDesc(row[2]);
  domain.SetDefaultAliasPattern(row[3]);
  domain.SetIsAutomaticallyAddingUsers(ReadFlag(row[4]));
  domain.SetIsDuplicatedAliasExist(ReadFlag(row[5]));
  domain.SetIsPrimary(ReadFlag(row[6]));
  return true;
}

bool SelectInts(DomainDBHandler* handler, const std::string& sql, std::vector<int>& values,
                SourceHere here = SourceHere::Now()) {
  Rows rows;
  if (!Select(handler, sql, 1, rows, here)) {
    return false;
  }
  for (const Row& row : rows) {
    int value = 0;
    if (!ReadInt(row[0], value, here)) {
      return false;
    }
    values.push_back(value);
  }
  return true;
}

}  // namespace

Domain::Domain() : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ ? 0 : -1) {}

bool Domain::Create(const RECORD::Domain& domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  batch.Add(
      "INSERT INTO  %q (domain_idx, domain_name, domain_desc, domain_default_alias_pattern, "
      "is_automatically_adding_users) VALUES ('%d', '%q', '%q', '%q', '%d');",
      kDomainTable, domain.GetDomainIdx(), domain.GetDomainName().c_str(),
      domain.GetDomainDesc().c_str(), domain.GetDefaultAliasPattern().c_str(),
      domain.IsAutomaticallyAddingUsers() ? 1 : 0);
  return batch.Run(handler_, "fail to insert domain_table");
}

bool Domain::Set(const RECORD::Domain& domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  batch.Add(
      "UPDATE %q SET domain_name = '%q', domain_desc = '%q', domain_default_alias_pattern = '%q', "
      "is_automatically_adding_users = %d WHERE domain_idx = %d",
      kDomainTable, domain.GetDomainName().c_str(), domain.GetDomainDesc().c_str(),
      domain.GetDefaultAliasPattern().c_str(), domain.IsAutomaticallyAddingUsers() ? 1 : 0,
      domain.GetDomainIdx());
  return batch.Run(handler_, "fail to update domain_table");
}

bool Domain::Delete(const std::vector<int>& domain_idxs) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const std::string& piece : JoinIdsInPieces(domain_idxs)) {
    batch.Add("DELETE FROM %q WHERE domain_idx IN (%q)", kDomainTable, piece.c_str());
  }
  return batch.Run(handler_, "fail to delete domain_table");
}

bool Domain::List(DomainDBFilter& filter, std::vector<RECORD::Domain>& domains) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kDomainView);
  Rows rows;
  if (!Select(handler_, own.ComposeQueryCmd(), kViewColumns, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    RECORD::Domain domain;
    if (!ReadDomain(row, domain)) {
      return false;
    }
    domains.push_back(domain);
  }
  if (!_FetchDomainsUserNum(domains)) {
    LOG_ERROR("Failed to _FetchDomainsUserNum");
    return false;
  }
  return true;
}

bool Domain::ListNames(std::vector<RECORD::Domain>& domains) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_,
              FormatStatement("SELECT %q.domain_idx, domain_name, %q.domain_idx IS NOT NULL FROM "
                              "%q LEFT JOIN %q ON %q.domain_idx = %q.domain_idx ORDER BY 1",
                              kDomainTable, kPrimaryTable, kDomainTable, kPrimaryTable,
                              kDomainTable, kPrimaryTable),
              3, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    int domain_idx = 0;
    if (!ReadInt(row[0], domain_idx)) {
      return false;
    }
    RECORD::Domain domain;
    domain.SetDomainIdx(domain_idx);
    domain.SetDomainName(row[1]);
    domain.SetIsPrimary(ReadFlag(row[2]));
    domains.push_back(domain);
  }
  return true;
}

bool Domain::GetDomainCount(DomainDBFilter& filter, int& count) {
  if (!IsOpen(status_)) {
    return false;
  }
  DomainDBFilter own = filter;
  own.SetTableName(kDomainView);
  own.SetSelect("count(*)");
  std::string cell;
  return SelectCell(handler_, own.ComposeQueryCmd(), cell) && ReadInt(cell, count);
}

bool Domain::GetAllDomainCount(int& count) {
  if (!IsOpen(status_)) {
    return false;
  }
  count = handler_->GetTableDataCount(kDomainView);
  return true;
}

bool Domain::GetNextDomainIDX(int& domain_idx) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_, std::string("select max(domain_idx) from ") + kDomainTable, 1, rows)) {
    return false;
  }
  int highest = 0;
  for (const Row& row : rows) {
    if (!row[0].empty()) {
      ReadInt(row[0], highest);
    }
  }
  if (highest == std::numeric_limits<int>::max()) {
    LOG_ERROR("no domain_idx is left after [%d]", highest);
    return false;
  }
  domain_idx = (highest < 0 ? 0 : highest) + 1;
  return true;
}

bool Domain::IsDomainNameExist(const std::string& name) {
  if (!IsOpen(status_)) {
    return false;
  }
  std::string other;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) < 0) {
    other = name;
  }
  const std::string sql = FormatStatement(
      "SELECT EXISTS (SELECT 1 FROM %q WHERE domain_table.domain_name COLLATE NOCASE IN ('%q', "
      "'%q') UNION SELECT 1 FROM %q WHERE domain_to_additional_domain_table.additional_domain "
      "COLLATE NOCASE IN ('%q', '%q') LIMIT 1)",
      kDomainTable, name.c_str(), other.c_str(), kAdditionalTable, name.c_str(), other.c_str());
  std::string cell = "0";
  return SelectCell(handler_, sql, cell) && ReadFlag(cell);
}

bool Domain::IsDomainNameChanged(const RECORD::Domain& domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = FormatStatement("SELECT %q FROM %q WHERE %q = %d", "domain_name",
                                          kDomainView, "domain_idx", domain.GetDomainIdx());
  std::string stored = domain.GetDomainName();
  return SelectCell(handler_, sql, stored) && stored != domain.GetDomainName();
}

bool Domain::GetDefaultAliasPattern(const int& domain_idx, std::string& pattern) {
  if (!IsOpen(status_)) {
    return false;
  }
  if (domain_idx < -1) {
    LOG_ERROR("domain_idx is invalid");
    return false;
  }
  Rows rows;
  if (!Select(
          handler_,
          FormatStatement("SELECT * FROM %q WHERE domain_idx = '%d';", kDomainTable, domain_idx), 4,
          rows)) {
    return false;
  }
  for (const Row& row : rows) {
    pattern = row[3];
  }
  return true;
}

bool Domain::GetPrimaryDomain(RECORD::Domain& domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_, FormatStatement("SELECT * FROM %q WHERE is_primary = 1;", kDomainView),
              kViewColumns, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    if (!ReadDomain(row, domain)) {
      return false;
    }
  }
  return true;
}

bool Domain::GetPrimaryDomainIdx(int& domain_idx) {
  if (!IsOpen(status_)) {
    return false;
  }
  Rows rows;
  if (!Select(handler_, FormatStatement("SELECT * FROM %q ", kPrimaryTable), 1, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    if (!ReadInt(row[0], domain_idx)) {
      return false;
    }
  }
  return true;
}

bool Domain::SetPrimaryDomain(const int& domain_idx) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  batch.Add("DELETE FROM %q", kPrimaryTable);
  batch.Add("insert into  %q (domain_idx) values ('%d');", kPrimaryTable, domain_idx);
  return batch.Run(handler_, "fail to insert primary_domain_table");
}

bool Domain::CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  if (!IsOpen(status_)) {
    return false;
  }
  StatementBatch batch;
  for (const std::string& name : names) {
    if (!UTILS::IsDomainNameValid(name)) {
      LOG_WARNING("Domain name [%s] is invalid, ignore", name.c_str());
      continue;
    }
    batch.Add("INSERT OR IGNORE INTO  %q (domain_idx, additional_domain) VALUES ('%d', '%q');",
              kAdditionalTable, domain_idx, name.c_str());
  }
  return batch.Run(handler_, "fail to insert domain_to_additional_domain_table");
}

bool Domain::DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  if (!IsOpen(status_)) {
    return false;
  }
  // A statement takes only so many names; one of them may double in length when it is escaped.
  constexpr size_t kRoom = kStatementSize - 2 * kMaxNameSize - 4096;
  std::vector<std::string> lists(1);
  for (const std::string& name : names) {
    if (name.size() > kMaxNameSize) {
      LOG_ERROR("domain name is too long: %s", name.c_str());
      continue;
    }
    if (lists.back().size() > kRoom) {
      lists.emplace_back();
    }
    lists.back() += lists.back().empty() ? "'" : ", '";
    lists.back() += EscapeQuery(name) + "'";
  }
  StatementBatch batch;
  for (const std::string& list : lists) {
    batch.Add("DELETE FROM %q WHERE domain_idx = %d AND additional_domain IN (%s)",
              kAdditionalTable, domain_idx, list.empty() ? "''" : list.c_str());
  }
  return batch.Run(handler_, "fail to delete domain_to_additional_domain_table");
}

bool Domain::ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names) {
  if (!IsOpen(status_)) {
    return false;
  }
  if (domain_idx < -1) {
    LOG_ERROR("domain_idx is invalid");
    return false;
  }
  Rows rows;
  if (!Select(handler_,
              std::string("SELECT * FROM ") + kAdditionalTable + " WHERE domain_idx = '" +
                  std::to_string(domain_idx) + "' ",
              2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    names.push_back(row[1]);
  }
  return true;
}

bool Domain::ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain) {
  if (!IsOpen(status_)) {
    return false;
  }
  // The order of the primary key, in which the question for one domain is answered.
  Rows rows;
  if (!Select(handler_,
              std::string("SELECT * FROM ") + kAdditionalTable +
                  " ORDER BY domain_idx, additional_domain",
              2, rows)) {
    return false;
  }
  for (const Row& row : rows) {
    int domain_idx = 0;
    if (!ReadInt(row[0], domain_idx)) {
      return false;
    }
    names_by_domain[domain_idx].push_back(row[1]);
  }
  return true;
}

bool Domain::GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = std::string("SELECT domain_idx FROM ") + kUserView +
                          " WHERE uid = " + std::to_string(uid) + " AND role = 'domain_admin';";
  return SelectInts(handler_, sql, domain_idxs);
}

bool Domain::GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = std::string("SELECT domain_idx FROM ") + kDomainView +
                          " WHERE is_automatically_adding_users = 1;";
  return SelectInts(handler_, sql, domain_idxs);
}

bool Domain::GetBelongedUsers(const std::vector<int>& domain_idxs,
                              std::vector<unsigned int>& uids) {
  if (!IsOpen(status_)) {
    return false;
  }
  const std::string sql = std::string("SELECT DISTINCT uid FROM ") + kUserView +
                          " WHERE domain_idx IN (" + BASE::Join(domain_idxs, ",") + ")";
  return SelectUIDs(handler_, sql, 0, uids);
}

// One count over all the domains in place of "count(distinct uid)" over one after the other.
bool Domain::_FetchDomainsUserNum(std::vector<RECORD::Domain>& domains) {
  std::vector<int> domain_idxs;
  domain_idxs.reserve(domains.size());
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
  }
  if (domain_idxs.empty()) {
    return true;
  }
  const std::string sql = std::string("SELECT domain_idx, count(distinct uid) FROM ") + kUserView +
                          " WHERE domain_idx IN (" + BASE::Join(domain_idxs, ",") +
                          ") AND role IS NOT NULL GROUP BY domain_idx;";
  Rows rows;
  if (!Select(handler_, sql, 2, rows)) {
    return false;
  }
  std::unordered_map<std::string, int> count_by_idx;
  for (const Row& row : rows) {
    if (!ReadInt(row[1], count_by_idx[row[0]])) {
      return false;
    }
  }
  for (RECORD::Domain& domain : domains) {
    domain.SetUserNum(count_by_idx[std::to_string(domain.GetDomainIdx())]);
  }
  return true;
}

}  // namespace MDOMAIN::DB
