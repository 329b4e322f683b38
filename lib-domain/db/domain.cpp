// The statements of the domain rows, their additional names and the primary marker.
#include "lib-domain/db/domain.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/database.h"
#include "lib-domain/db/domain_names.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/read_scope.h"
#include "lib-domain/db/role_holders.h"
#include "lib-domain/db/statement.h"
#include "lib-domain/utils/domain_utils.h"
#include "platform/include/eai.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::DB {

using namespace INTERNAL;
using korvmailserver::FormatSql;

namespace {

constexpr const char* kView = "domain_view";
// Columns of domain_view: index, name, description, pattern, adding users, duplicated alias,
// primary.
using DomainColumns = Columns<Int, Text, Text, Text, Flag, Flag, Flag>;

constexpr const char* kInsert =
    "INSERT INTO  domain_table (domain_idx, domain_name, domain_desc, "
    "domain_default_alias_pattern, is_automatically_adding_users) VALUES ('%d', '%q', '%q', '%q', "
    "'%d');";
constexpr const char* kUpdate =
    "UPDATE domain_table SET domain_name = '%q', domain_desc = '%q', domain_default_alias_pattern "
    "= '%q', is_automatically_adding_users = %d WHERE domain_idx = %d";
constexpr const char* kDelete = "DELETE FROM domain_table WHERE domain_idx IN (%q)";
constexpr const char* kSelectNames =
    "SELECT domain_table.domain_idx, domain_name, primary_domain_table.domain_idx IS NOT NULL FROM "
    "domain_table LEFT JOIN primary_domain_table ON domain_table.domain_idx = "
    "primary_domain_table.domain_idx ORDER BY 1";
constexpr const char* kCountDomains = "SELECT count(*) FROM domain_table";
constexpr const char* kSelectHighestIdx = "select max(domain_idx) from domain_table";
constexpr const char* kIsNameTaken =
    "SELECT EXISTS (SELECT 1 FROM domain_table WHERE domain_table.domain_name COLLATE NOCASE IN "
    "('%q', '%q') UNION SELECT 1 FROM domain_to_additional_domain_table WHERE "
    "domain_to_additional_domain_table.additional_domain COLLATE NOCASE IN ('%q', '%q') LIMIT 1)";
constexpr const char* kSelectName = "SELECT domain_name FROM domain_table WHERE domain_idx = %d";
constexpr const char* kSelectDomain = "SELECT * FROM domain_table WHERE domain_idx = '%d';";
constexpr size_t kPatternColumn = 3;

constexpr const char* kSelectPrimary = "SELECT * FROM domain_view WHERE is_primary = 1;";
constexpr const char* kSelectPrimaryIdx = "SELECT * FROM primary_domain_table ";
constexpr const char* kDeletePrimary = "DELETE FROM primary_domain_table";
constexpr const char* kInsertPrimary =
    "insert into  primary_domain_table (domain_idx) values ('%d');";

constexpr const char* kInsertAdditional =
    "INSERT OR IGNORE INTO  domain_to_additional_domain_table (domain_idx, additional_domain) "
    "VALUES ('%d', '%q');";
constexpr const char* kDeleteAdditional =
    "DELETE FROM domain_to_additional_domain_table WHERE domain_idx = %d AND additional_domain IN "
    "(%s)";
constexpr const char* kDeleteAdditionalOne =
    "DELETE FROM domain_to_additional_domain_table WHERE domain_idx = %d AND additional_domain IN "
    "('%q')";
constexpr const char* kDeleteAdditionalFailure = "fail to delete domain_to_additional_domain_table";
constexpr const char* kSelectAdditional =
    "SELECT * FROM domain_to_additional_domain_table WHERE domain_idx = '%d' ";
// Of the domains that are there. In the order of the primary key, which the statement for one
// domain gives, too.
constexpr const char* kSelectAllAdditional =
    "SELECT * FROM domain_to_additional_domain_table WHERE +domain_idx IN (SELECT domain_idx FROM "
    "domain_table) ORDER BY domain_idx, additional_domain";

constexpr const char* kSelectDelegated =
    "SELECT domain_idx FROM domain_user_view WHERE uid = %u AND role = 'domain_admin' ORDER BY "
    "domain_idx;";
constexpr const char* kSelectAdding =
    "SELECT domain_idx FROM domain_table WHERE is_automatically_adding_users = 1;";
constexpr const char* kSelectUsers =
    "SELECT DISTINCT uid FROM domain_user_view WHERE domain_idx IN (%s)";
constexpr const char* kSelectUsersOfOne =
    "SELECT DISTINCT uid FROM domain_user_view WHERE domain_idx IN (%d)";
// One count over all the domains in place of "count(distinct uid)" over one after the other.
constexpr const char* kCountUsers =
    "SELECT domain_idx, count(distinct uid) FROM %s WHERE domain_idx IN (%s) AND role IS NOT NULL "
    "GROUP BY domain_idx;";

// Longest additional name that DeleteAdditionalDomains takes, in bytes.
constexpr size_t kMaxNameSize = 2048;
// Bytes of names after which a list is full: a name may double in length when it is escaped.
constexpr size_t kListSize = kStatementSize - 2 * kMaxNameSize - 4096;

bool IsIdxUsable(const Database& db, int domain_idx, SourceHere here = SourceHere::Now()) {
  if (!db.IsOpen(here)) {
    return false;
  }
  if (domain_idx < -1) {
    LOG_ERROR_AT(here.file, here.line, "domain_idx is invalid");
    return false;
  }
  return true;
}

// The names as lists of literals, each short enough for one statement; at least one.
std::vector<std::string> QuoteInPieces(const std::vector<std::string>& names,
                                       SourceHere here = SourceHere::Now()) {
  std::vector<std::string> pieces(1);
  for (const std::string& name : names) {
    if (name.size() > kMaxNameSize) {
      LOG_ERROR_AT(here.file, here.line, "domain name is too long: %s", name.c_str());
      continue;
    }
    if (pieces.back().size() > kListSize) {
      pieces.emplace_back();
    }
    pieces.back() += pieces.back().empty() ? "'" : ", '";
    pieces.back() += EscapeQuery(name) + "'";
  }
  if (pieces.back().empty()) {
    pieces.back() = "''";
  }
  return pieces;
}

void AddName(std::vector<RECORD::Domain>& domains, int domain_idx, const std::string& name,
             bool is_primary) {
  RECORD::Domain& domain = domains.emplace_back();
  domain.SetDomainIdx(domain_idx);
  domain.SetDomainName(name);
  domain.SetIsPrimary(is_primary);
}

// One after the other, each with few look-ups.
bool CountEach(DomainDBHandler* handler, std::vector<RECORD::Domain>& domains) {
  const ReadScope of_one_moment(handler);
  return std::all_of(domains.begin(), domains.end(), [handler](RECORD::Domain& domain) {
    int count = 0;
    const bool is_counted = CountWithRole(handler, domain.GetDomainIdx(), count);
    domain.SetUserNum(count);
    return is_counted;
  });
}

}  // namespace

Domain::Domain()
    : handler_(DomainDBHandler::GetDomainDBHandler()), status_(handler_ != nullptr ? 0 : -1) {}

INTERNAL::Database Domain::_DomainDb() const {
  return {handler_, status_};
}

bool Domain::Create(const RECORD::Domain& domain) {
  StatementBatch batch;
  batch.AddKept(Sql(kInsert, domain.GetDomainIdx(), domain.GetDomainName(), domain.GetDomainDesc(),
                    domain.GetDefaultAliasPattern(), domain.IsAutomaticallyAddingUsers() ? 1 : 0));
  return _DomainDb().Run(batch, "fail to insert domain_table");
}

bool Domain::Set(const RECORD::Domain& domain) {
  StatementBatch batch;
  batch.AddKept(Sql(kUpdate, domain.GetDomainName(), domain.GetDomainDesc(),
                    domain.GetDefaultAliasPattern(), domain.IsAutomaticallyAddingUsers() ? 1 : 0,
                    domain.GetDomainIdx()));
  return _DomainDb().Run(batch, "fail to update domain_table");
}

bool Domain::Delete(const std::vector<int>& domain_idxs) {
  StatementBatch batch;
  batch.AddWithIds(kDelete, domain_idxs);
  return _DomainDb().Run(batch, "fail to delete domain_table");
}

bool Domain::List(DomainDBFilter& filter, std::vector<RECORD::Domain>& domains) {
  DomainDBFilter own = filter;
  own.SetTableName(kView);
  if (!_DomainDb().Append<DomainColumns>(own.ComposeQueryCmd(), domains)) {
    return false;
  }
  if (!_FetchDomainsUserNum(domains)) {
    LOG_ERROR("Failed to _FetchDomainsUserNum");
    return false;
  }
  return true;
}

bool Domain::ListNames(std::vector<RECORD::Domain>& domains) {
  std::shared_ptr<const std::vector<RECORD::Domain>> named;
  const bool are_listed = ShareNamedDomains(named);
  domains.insert(domains.end(), named->begin(), named->end());
  return are_listed;
}

bool Domain::ShareNamedDomains(std::shared_ptr<const std::vector<RECORD::Domain>>& domains) {
  std::shared_ptr<const DomainNames> names;
  if (ShareNames(names)) {
    domains = {names, &names->domains};
    return true;
  }
  const auto listed = std::make_shared<std::vector<RECORD::Domain>>();
  domains = listed;
  return _DomainDb().Query<Columns<Int, Text, Flag>>(
      Sql(kSelectNames), [&listed](int domain_idx, const std::string& name, bool is_primary) {
        AddName(*listed, domain_idx, name, is_primary);
      });
}

// What the given operations would not take as it is, they tell of.
bool Domain::ShareNames(std::shared_ptr<const DomainNames>& names) {
  const auto read = [this](DomainNames& found) {
    bool are_plain = true;
    const auto read_idx = [&are_plain](const Cells& row) {
      int domain_idx = 0;
      are_plain = are_plain && ReadPlainId(row, 0, domain_idx);
      return domain_idx;
    };
    return _DomainDb().TryForEachRow(Sql(kSelectNames), [&](const Cells& row) {
      AddName(found.domains, read_idx(row), row.Text(1), row.Int64(2) != 0);
    }) && _DomainDb().TryForEachRow(Sql(kSelectAllAdditional), [&](const Cells& row) {
      found.additional[read_idx(row)].push_back(row.Text(1));
    }) && are_plain;
  };
  return _DomainDb().ShareNames(read, names);
}

bool Domain::GetDomainCount(DomainDBFilter& filter, int& count) {
  return _DomainDb().GetCount(filter, kView, "count(*)", count);
}

// The view gives a row for each domain; where the table cannot be counted at once, the view says
// why.
bool Domain::GetAllDomainCount(int& count) {
  if (_DomainDb().TryForEachRow(Sql(kCountDomains),
                                [&count](const Cells& row) { count = row.Int(0); })) {
    return true;
  }
  return _DomainDb().GetTableCount(kView, count);
}

bool Domain::GetNextDomainIDX(int& domain_idx) {
  int highest = 0;
  const auto read = [&highest](const std::string& cell) {
    if (!cell.empty()) {
      Int::Read(cell, highest, SourceHere::Now());
    }
  };
  if (!_DomainDb().Query<Columns<Text>>(kSelectHighestIdx, read)) {
    return false;
  }
  if (highest == std::numeric_limits<int>::max()) {
    LOG_ERROR("no domain_idx is left after [%d]", highest);
    return false;
  }
  domain_idx = (highest < 0 ? 0 : highest) + 1;
  return true;
}

bool Domain::IsDomainNameExist(const std::string& name) {
  bool taken = false;
  return FindName(name, taken) && taken;
}

bool Domain::FindName(const std::string& name, bool& taken) {
  if (!_DomainDb().IsOpen()) {
    return false;
  }
  std::string other;
  if (KORV::POSTARA_SERVER::ConvertToPunycodeOrUTF8(name, other) < 0) {
    other = name;
  }
  return _DomainDb().GetExists(Sql(kIsNameTaken, name, other, name, other), taken);
}

bool Domain::GetName(const int& domain_idx, std::string& name) {
  return _DomainDb().GetText(Sql(kSelectName, domain_idx), 0, name);
}

bool Domain::IsDomainNameChanged(const RECORD::Domain& domain) {
  std::string stored = domain.GetDomainName();
  return GetName(domain.GetDomainIdx(), stored) && stored != domain.GetDomainName();
}

bool Domain::GetDefaultAliasPattern(const int& domain_idx, std::string& pattern) {
  return IsIdxUsable(_DomainDb(), domain_idx) &&
         _DomainDb().GetText(Sql(kSelectDomain, domain_idx), kPatternColumn, pattern);
}

bool Domain::GetPrimaryDomain(RECORD::Domain& domain) {
  std::vector<RECORD::Domain> found;
  const bool read = _DomainDb().Append<DomainColumns>(kSelectPrimary, found);
  if (!found.empty()) {
    found.back().SetUserNum(domain.GetUserNum());  // no column has it
    domain = found.back();
  }
  return read;
}

bool Domain::GetPrimaryDomainIdx(int& domain_idx) {
  return _DomainDb().Query<Columns<Int>>(kSelectPrimaryIdx,
                                         [&domain_idx](int stored) { domain_idx = stored; });
}

bool Domain::SetPrimaryDomain(const int& domain_idx) {
  StatementBatch batch;
  batch.Add(kDeletePrimary);
  batch.Add(FormatStatement(kInsertPrimary, domain_idx));
  return _DomainDb().Run(batch, "fail to insert primary_domain_table");
}

bool Domain::CreateAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  if (!_DomainDb().IsOpen()) {
    return false;
  }
  std::vector<std::string> valid;
  for (const std::string& name : names) {
    if (!UTILS::IsDomainNameValid(name)) {
      LOG_WARNING("Domain name [%s] is invalid, ignore", name.c_str());
      continue;
    }
    valid.push_back(name);
  }
  return _InsertAdditional(domain_idx, valid);
}

bool Domain::RestoreAdditionalDomains(const int& domain_idx,
                                      const std::vector<std::string>& names) {
  return _InsertAdditional(domain_idx, names);
}

bool Domain::_InsertAdditional(const int& domain_idx, const std::vector<std::string>& names) {
  StatementBatch batch;
  batch.AddEach(kInsertAdditional, names, [domain_idx](const std::string& name) {
    return std::make_tuple(domain_idx, name);
  });
  return _DomainDb().Run(batch, "fail to insert domain_to_additional_domain_table");
}

bool Domain::DeleteAdditionalDomains(const int& domain_idx, const std::vector<std::string>& names) {
  if (!_DomainDb().IsOpen()) {
    return false;
  }
  StatementBatch batch;
  if (names.size() == 1 && names.front().size() <= kMaxNameSize) {
    batch.AddKept(Sql(kDeleteAdditionalOne, domain_idx, names.front()));
    return _DomainDb().Run(batch, kDeleteAdditionalFailure);
  }
  for (const std::string& piece : QuoteInPieces(names)) {
    batch.Add(FormatStatement(kDeleteAdditional, domain_idx, piece.c_str()));
  }
  return _DomainDb().Run(batch, kDeleteAdditionalFailure);
}

bool Domain::ListAdditionalDomains(const int& domain_idx, std::vector<std::string>& names) {
  return IsIdxUsable(_DomainDb(), domain_idx) &&
         _DomainDb().Query<Columns<Text, Text>>(
             Sql(kSelectAdditional, domain_idx),
             [&names](const std::string& /*domain_idx*/, std::string&& name) {
               names.push_back(std::move(name));
             });
}

bool Domain::ListAllAdditionalDomains(std::map<int, std::vector<std::string>>& names_by_domain) {
  return _DomainDb().Query<Columns<Int, Text>>(
      kSelectAllAdditional, [&names_by_domain](int domain_idx, std::string&& name) {
        names_by_domain[domain_idx].push_back(std::move(name));
      });
}

bool Domain::GetDelegatedDomainIds(const unsigned int& uid, std::vector<int>& domain_idxs) {
  return _DomainDb().Append<Columns<Int>>(Sql(kSelectDelegated, uid), domain_idxs);
}

bool Domain::GetAutoAddingUserDomainIds(std::vector<int>& domain_idxs) {
  return _DomainDb().Append<Columns<Int>>(kSelectAdding, domain_idxs);
}

bool Domain::GetBelongedUsers(const std::vector<int>& domain_idxs,
                              std::vector<unsigned int>& uids) {
  const Sql sql = domain_idxs.size() == 1
                      ? Sql(kSelectUsersOfOne, domain_idxs.front())
                      : Sql(FormatSql(kSelectUsers, BASE::Join(domain_idxs, ",").c_str()));
  return _DomainDb().Append<Columns<Uid>>(sql, uids);
}

bool Domain::_FetchDomainsUserNum(std::vector<RECORD::Domain>& domains) {
  std::vector<int> domain_idxs;
  domain_idxs.reserve(domains.size());
  for (const RECORD::Domain& domain : domains) {
    domain_idxs.push_back(domain.GetDomainIdx());
  }
  if (domain_idxs.empty()) {
    return true;
  }
  if (handler_->HasOwnViews() && CountEach(handler_, domains)) {
    return true;
  }
  std::unordered_map<int, int> count_by_idx;
  const auto keep = [&count_by_idx](int domain_idx, int count) {
    count_by_idx[domain_idx] = count;
  };
  if (!_DomainDb().Query<Columns<Int, Int>>(
          FormatSql(kCountUsers, handler_->HasOwnViews() ? kUserWithRoleView : kUserView,
                    BASE::Join(domain_idxs, ",").c_str()),
          keep)) {
    return false;
  }
  for (RECORD::Domain& domain : domains) {
    domain.SetUserNum(count_by_idx[domain.GetDomainIdx()]);
  }
  return true;
}

}  // namespace MDOMAIN::DB
