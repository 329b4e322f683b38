// Which rows of domain_view, domain_user_view or domain_group_view a caller wants, as one SQL text.
#ifndef LIB_DOMAIN_DB_DOMAIN_DB_FILTER_H
#define LIB_DOMAIN_DB_DOMAIN_DB_FILTER_H

#include <string>
#include <vector>

namespace MDOMAIN::DB {

class DomainDBFilter {
 public:
  DomainDBFilter() = default;
  explicit DomainDBFilter(const std::string& table_name) : table_name_(table_name) {}

  void SetOffset(const int& offset) { offset_ = offset; }
  void SetLimit(const int& limit) { limit_ = limit; }
  void SetDomainIdxs(const std::vector<int>& domain_idxs) { domain_idxs_ = domain_idxs; }
  void SetQuery(const std::string& query) { query_ = query; }
  void SetQueryType(const std::string& query_type) { query_type_ = query_type; }
  void SetSelect(const std::string& select) { select_ = select; }
  void SetSortBy(const std::string& sort_by) { sort_by_ = sort_by; }
  void SetSortDirection(const std::string& sort_direction) { sort_direction_ = sort_direction; }
  void SetTableName(const std::string& table_name) { table_name_ = table_name; }

  std::string ComposeQueryCmd();
  std::string ComposeDomainUserListQueryCmd(const std::vector<unsigned int>& uids);
  std::string ComposeDistinctUIDQueryCmd();

 private:
  bool _HasQueryInput() const;
  std::string _GetQueryColumnByQueryType() const;
  std::string _GetDomainIdxColumnByTableName() const;
  std::string _GetQueryCmdByTableName(const char* escaped_query) const;
  std::string _GetDomainIdxCondition() const;
  std::string _GetQueryCondition() const;
  std::string _GetOrder() const;
  std::string _GetPage() const;

  int offset_ = 0;
  int limit_ = 100;
  std::vector<int> domain_idxs_;
  std::string query_;
  std::string query_type_;
  std::string select_ = "*";
  std::string sort_by_;
  std::string sort_direction_;
  std::string table_name_ = "domain_view";
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_DOMAIN_DB_FILTER_H
