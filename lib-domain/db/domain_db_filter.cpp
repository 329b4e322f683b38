// Composes the list, count and distinct-uid queries over the three domain views.
#include "lib-domain/db/domain_db_filter.h"

#include <algorithm>
#include <array>
#include <set>

#include "lib-domain/base/text.h"
#include "lib-domain/db/own_indexes.h"
#include "lib-domain/db/statement.h"

namespace MDOMAIN::DB {

namespace {

constexpr int kNoDomain = -1;  // an empty list is that of all
constexpr const char* kDomainView = "domain_view";
constexpr const char* kDomainGroupView = "domain_group_view";

bool ListsUsers(const std::string& table_name) {
  return table_name == INTERNAL::kUserView || table_name == INTERNAL::kUserWithRoleView;
}

// A text that is none is left out, and what is left is no statement.
bool IsSort(const std::string& column, const std::string& direction) {
  constexpr std::array<const char*, 6> kColumns = {"uid",           "user_name", "account_alias",
                                                   "is_duplicated", "role",      "domain_idx"};
  constexpr std::array<const char*, 3> kDirections = {"", "asc", "desc"};
  const auto is_one_of = [](const auto& known, const std::string& text) {
    return std::any_of(known.begin(), known.end(),
                       [&text](const char* one) { return BASE::EqualsIgnoreCase(text, one); });
  };
  return is_one_of(kColumns, column) && is_one_of(kDirections, direction);
}

}  // namespace

void DomainDBFilter::LimitToDomainIdxs(const std::vector<int>& allowed) {
  const std::set<int> is_allowed(allowed.begin(), allowed.end());
  std::vector<int> left;
  for (const int domain_idx : domain_idxs_.empty() ? allowed : domain_idxs_) {
    if (is_allowed.count(domain_idx) != 0) {
      left.push_back(domain_idx);
    }
  }
  domain_idxs_ = left.empty() ? std::vector<int>{kNoDomain} : left;
}

void DomainDBFilter::SetLiteralQuery(const std::string& text) {
  query_ = INTERNAL::LiteralQuery(text);
}

bool DomainDBFilter::SortsByRole() const {
  return BASE::ToLowerAscii(sort_by_).find("role") != std::string::npos;
}

bool DomainDBFilter::IsForWholeDomainBy(const char* column) const {
  return IsForWholeDomain() && !IsCounting() && BASE::EqualsIgnoreCase(sort_by_, column) &&
         IsSort(sort_by_, sort_direction_);
}

bool DomainDBFilter::IsDescending() const {
  return BASE::EqualsIgnoreCase(sort_direction_, "desc");
}

bool DomainDBFilter::_HasQueryInput() const {
  return !domain_idxs_.empty() || !query_.empty();
}

std::string DomainDBFilter::_GetQueryColumnByQueryType() const {
  for (const char* column :
       {"domain_name", "domain_desc", "user_name", "account_alias", "group_name", "group_desc"}) {
    if (query_type_ == column) {
      return column;
    }
  }
  return "";
}

std::string DomainDBFilter::_GetDomainIdxColumnByTableName() const {
  return "domain_idx";
}

std::string DomainDBFilter::_GetQueryCmdByTableName(const char* query) const {
  const auto either = [&](const char* name, const char* other) {
    return INTERNAL::Like(name, query) + " OR " + INTERNAL::Like(other, query);
  };
  if (table_name_ == kDomainView) {
    return either("domain_name", "domain_desc");
  }
  if (table_name_ == kDomainGroupView) {
    return either("group_name", "group_desc");
  }
  return ListsUsers(table_name_) ? either("user_name", "account_alias") : "";
}

std::string DomainDBFilter::_GetDomainIdxCondition() const {
  return _GetDomainIdxColumnByTableName() + " IN (" + BASE::Join(domain_idxs_, ",") + ")";
}

std::string DomainDBFilter::_GetQueryCondition() const {
  return query_type_.empty() ? _GetQueryCmdByTableName(query_.c_str())
                             : INTERNAL::Like(_GetQueryColumnByQueryType(), query_);
}

std::string DomainDBFilter::_GetOrder() const {
  std::string order = " ORDER BY is_duplicated DESC";
  if (!sort_by_.empty()) {
    order += ", " + (IsSort(sort_by_, sort_direction_) ? sort_by_ + " " + sort_direction_ : "");
  }
  return order;
}

std::string DomainDBFilter::_GetPage() const {
  if (IsCounting()) {
    return "";
  }
  return " LIMIT " + std::to_string(limit_) + " OFFSET " + std::to_string(offset_);
}

std::string DomainDBFilter::ComposeQueryCmd() {
  std::string sql = "SELECT " + select_ + " FROM " + table_name_;
  const bool lists_users = ListsUsers(table_name_);
  if (_HasQueryInput() || lists_users) {
    sql += " WHERE ";
  }
  if (!domain_idxs_.empty()) {
    sql += _GetDomainIdxCondition();
  }
  if (!query_.empty()) {
    sql += (domain_idxs_.empty() ? "(" : " AND (") + _GetQueryCondition() + ")";
  }
  if (lists_users) {
    sql += domain_idxs_.empty() ? "" : " AND ";
    sql += "role IS NOT NULL ";
  }
  return sql + _GetPage() + ";";
}

std::string DomainDBFilter::ComposeDomainUserListQueryCmd(const std::vector<unsigned int>& uids) {
  std::string sql = "SELECT " + select_ + " FROM " + table_name_;
  if (_HasQueryInput() || !uids.empty()) {
    sql += " WHERE ";
  }
  if (!domain_idxs_.empty()) {
    sql += _GetDomainIdxCondition();
  }
  if (!uids.empty()) {
    sql += " AND uid IN (" + BASE::Join(uids, ",") + ")";
  }
  return sql + _GetOrder() + ";";
}

std::string DomainDBFilter::ComposeDistinctUIDQueryCmd() {
  std::string sql = "SELECT DISTINCT uid FROM " + table_name_ + " WHERE role IS NOT NULL ";
  if (!domain_idxs_.empty()) {
    sql += " AND " + _GetDomainIdxCondition() + " ";
  }
  if (!query_.empty()) {
    sql += " AND (" + _GetQueryCondition() + (query_type_.empty() ? ") " : ")");
  }
  return sql + _GetOrder() + _GetPage() + ";";
}

std::string DomainDBFilter::ComposeUIDsInFrontCmd() const {
  return _ComposeFirstRows(" AND is_duplicated > 0", "is_duplicated > 0");
}

std::string DomainDBFilter::ComposeUIDsBehindCmd() const {
  return _ComposeFirstRows("", "is_duplicated < 0 OR is_duplicated IS NULL");
}

// min() makes the other columns those of the first row.
std::string DomainDBFilter::_ComposeFirstRows(const char* among, const char* wanted) const {
  const std::string domain = _GetDomainIdxCondition();
  return "SELECT uid FROM (SELECT uid, is_duplicated, min(alias_row) FROM " +
         std::string(INTERNAL::kUserWithRoleView) + " WHERE " + domain +
         " AND uid IN (SELECT uid FROM domain_user_alias_table WHERE " + domain + among + ")" +
         (query_.empty() ? "" : " AND (" + _GetQueryCondition() + ")") + " GROUP BY uid) WHERE " +
         wanted + " ORDER BY is_duplicated DESC, uid;";
}

std::string DomainDBFilter::ComposeUIDWalkCmd() const {
  return "SELECT uid, CASE WHEN is_duplicated > 0 THEN 1 WHEN is_duplicated = 0 THEN 0 ELSE 2 END "
         "FROM " +
         std::string(INTERNAL::kUserWithRoleView) + " WHERE " + _GetDomainIdxCondition() +
         (query_.empty() ? "" : " AND (" + _GetQueryCondition() + ")") +
         " ORDER BY uid, alias_row;";
}

}  // namespace MDOMAIN::DB
