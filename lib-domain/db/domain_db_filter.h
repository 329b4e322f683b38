// Which rows of domain_view, domain_user_view (or its with-role twin) or domain_group_view a caller
// wants, as one SQL text.
//
// Search texts are escaped here, and the sort column and direction are looked up. The select list
// and the table are written as given: they must come from the program, never from its input. The
// stores set table and select list on a copy, so a filter that was used to count can be used to
// list next.
#ifndef LIB_DOMAIN_DB_DOMAIN_DB_FILTER_H
#define LIB_DOMAIN_DB_DOMAIN_DB_FILTER_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::DB {

class MDOMAIN_EXPORT DomainDBFilter {
 public:
  // All domains, the first 100.
  DomainDBFilter() = default;
  explicit DomainDBFilter(const std::string& table_name) : table_name_(table_name) {}

  // The page, in rows; for users in users. A limit of -1 is none. Counting is never paged.
  void SetOffset(const int& offset) { offset_ = offset; }
  void SetLimit(const int& limit) { limit_ = limit; }
  // Empty: all domains. Lists of users need at least one: without any, the composed text is not
  // valid and the database refuses it. For what somebody asked for, not for what they may see.
  void SetDomainIdxs(const std::vector<int>& domain_idxs) { domain_idxs_ = domain_idxs; }
  // The last word on them: of those set before, or of all, only those that somebody may see, as
  // GetDelegatedDomainIds gives them. Where none is left nothing is listed or counted.
  void LimitToDomainIdxs(const std::vector<int>& allowed);
  // A text that the column of the query type contains, ASCII case ignored ("%" and "_" are
  // wildcards); without a query type the name or description, for users the name or alias. SQLite
  // refuses more than 50,000 bytes.
  void SetQuery(const std::string& query) { query_ = query; }
  // The same, where "%" and "_" mean themselves.
  void SetLiteralQuery(const std::string& text);
  // "domain_name", "domain_desc", "user_name", "account_alias", "group_name", "group_desc"; with
  // any other the database refuses the query.
  void SetQueryType(const std::string& query_type) { query_type_ = query_type; }
  void SetSelect(const std::string& select) { select_ = select; }
  // For users "uid", "user_name", "account_alias", "is_duplicated", "role", "domain_idx". Empty: in
  // no order but that of the flags. With any other column, or a direction but "asc", "desc" in
  // either case or the empty text, the database refuses the query.
  void SetSortBy(const std::string& sort_by) { sort_by_ = sort_by; }
  void SetSortDirection(const std::string& sort_direction) { sort_direction_ = sort_direction; }
  void SetTableName(const std::string& table_name) { table_name_ = table_name; }

  // Whether its statement of uids asks for the role itself, not only for whether there is one.
  bool SortsByRole() const;

  // A "count..." select list has no page.
  bool IsCounting() const { return select_.find("count") != std::string::npos; }
  // Whether it is for the users of one domain in no order but that of the flags: then the three
  // statements below give what ComposeDistinctUIDQueryCmd gives, before its page is cut out.
  bool IsForOneDomainUnsorted() const {
    return domain_idxs_.size() == 1 && sort_by_.empty() && !IsCounting();
  }
  // Whether it is for all users of one domain, in whatever order.
  bool IsForWholeDomain() const { return domain_idxs_.size() == 1 && query_.empty(); }
  // Whether it is for a page of all users of one domain by this column.
  bool IsForWholeDomainBy(const char* column) const;
  bool IsSearched() const { return !query_.empty(); }
  bool IsDescending() const;
  // The uids that stand in front: those whose first matching alias is flagged.
  std::string ComposeUIDsInFrontCmd() const;
  // The first column of all others is a uid, ascending, the second of its rows whether the row is
  // in front (1), behind (2) or between (0). A uid's first row decides.
  std::string ComposeUIDWalkCmd() const;
  // The uids that stand behind: those whose first matching alias has no valid flag.
  std::string ComposeUIDsBehindCmd() const;
  int GetOffset() const { return offset_; }
  int GetLimit() const { return limit_; }
  const std::vector<int>& GetDomainIdxs() const { return domain_idxs_; }

  // The matching rows, or with a "count..." select list their number. Of users only those with a
  // role in the domain.
  std::string ComposeQueryCmd();
  // Every alias row of these users in the filter's domains, duplicated aliases first, then in sort
  // order, not paged. Rows without a role are among them.
  std::string ComposeDomainUserListQueryCmd(const std::vector<unsigned int>& uids);
  // One page of the uids of matching users with a role, those with a duplicated alias first.
  std::string ComposeDistinctUIDQueryCmd();

 private:
  bool _HasQueryInput() const;
  std::string _GetQueryColumnByQueryType() const;
  std::string _GetDomainIdxColumnByTableName() const;
  std::string _GetQueryCmdByTableName(const char* query) const;
  std::string _GetDomainIdxCondition() const;
  std::string _GetQueryCondition() const;
  std::string _ComposeFirstRows(const char* among, const char* wanted) const;
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
