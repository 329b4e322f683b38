// Which rows of user_table or group_table a caller wants, as one SQL text.
//
// By default every row and column. All conditions that are set must hold. Search texts and names
// are escaped here; the select list is written as given and must come from the program.
#ifndef LIB_DOMAIN_DB_ACCOUNT_DB_FILTER_H
#define LIB_DOMAIN_DB_ACCOUNT_DB_FILTER_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::DB {

class MDOMAIN_EXPORT UserDBFilter {
 public:
  UserDBFilter() = default;
  explicit UserDBFilter(const std::string& select) : select_(select) {}

  // A text that the name contains, ASCII case ignored ("%" and "_" are wildcards).
  void SetQuery(const std::string& query) { query_ = query; }
  // The same, where "%" and "_" mean themselves.
  void SetLiteralQuery(const std::string& text);
  void SetUIDs(const std::vector<unsigned int>& uids) { uids_ = uids; }
  // Short or full account names, ASCII case ignored. Composing the query makes them full names with
  // the help of the account system. Apostrophes are doubled inside double quotes, so a name that
  // has one is not found; look such a user up by uid.
  void SetUserNames(const std::vector<std::string>& user_names) { user_names_ = user_names; }
  void SetSelect(const std::string& select) { select_ = select; }
  // -1: no limit. A "count(*)" select list is never paged.
  void SetLimit(const int& limit) { limit_ = limit; }
  void SetOffset(const int& offset) { offset_ = offset; }

  const std::string& GetQuery() const { return query_; }
  const std::vector<unsigned int>& GetUIDs() const { return uids_; }
  const std::vector<std::string>& GetUserNames() const { return user_names_; }
  const std::string& GetSelect() const { return select_; }
  int GetLimit() const { return limit_; }
  int GetOffset() const { return offset_; }

 private:
  std::string query_;
  std::vector<unsigned int> uids_;
  std::vector<std::string> user_names_;
  std::string select_ = "*";
  int limit_ = -1;
  int offset_ = 0;
};

class MDOMAIN_EXPORT GroupDBFilter {
 public:
  GroupDBFilter() = default;
  explicit GroupDBFilter(const std::string& select) : select_(select) {}

  // A text that the name contains, ASCII case ignored ("%" and "_" are wildcards).
  void SetQuery(const std::string& query) { query_ = query; }
  // The same, where "%" and "_" mean themselves.
  void SetLiteralQuery(const std::string& text);
  void SetGIDs(const std::vector<unsigned int>& gids) { gids_ = gids; }
  // As UserDBFilter::SetUserNames.
  void SetGroupNames(const std::vector<std::string>& group_names) { group_names_ = group_names; }
  void SetSelect(const std::string& select) { select_ = select; }
  // -1: no limit. A "count(*)" select list is never paged.
  void SetLimit(const int& limit) { limit_ = limit; }
  void SetOffset(const int& offset) { offset_ = offset; }

  const std::string& GetQuery() const { return query_; }
  const std::vector<unsigned int>& GetGIDs() const { return gids_; }
  const std::vector<std::string>& GetGroupNames() const { return group_names_; }
  const std::string& GetSelect() const { return select_; }
  int GetLimit() const { return limit_; }
  int GetOffset() const { return offset_; }

 private:
  std::string query_;
  std::vector<unsigned int> gids_;
  std::vector<std::string> group_names_;
  std::string select_ = "*";
  int limit_ = -1;
  int offset_ = 0;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_ACCOUNT_DB_FILTER_H
