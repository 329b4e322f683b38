// Names for the numbers in changed rows: as the rows had them, else as the model has them now.
#ifndef LIB_DOMAIN_HISTORY_NAMES_H
#define LIB_DOMAIN_HISTORY_NAMES_H

#include <map>
#include <string>
#include <vector>

#include "lib-domain/history/model_changes.h"
#include "platform/include/sqlite.h"

namespace MDOMAIN::HISTORY {

// The value in a column of a row as text; empty for NULL, a missing column or no row.
std::string TextOf(const korvmailserver::TableChange& table, const korvmailserver::SqlRow& row,
                   const std::string& column);

class Names {
 public:
  Names(const std::string& model_path, const Changes& changes);
  // A missing model has no names. False with one log line.
  bool Open();

  // Without a name, "uid 1001", "gid 2001", "domain 3".
  std::string User(const std::string& uid);
  std::string Group(const std::string& gid);
  std::string Domain(const std::string& domain_idx);
  // Who has the alias in the domain without a flag now; empty when nobody has.
  std::string AliasOwner(const std::string& domain_idx, const std::string& alias);

 private:
  using Known = std::map<std::string, std::string>;

  std::string _Name(Known& known, const std::string& id, const char* sql, const char* kind);
  std::string _First(const char* sql, const std::vector<std::string>& values);

  std::string model_path_;
  bool is_model_changed_ = false;
  korvmailserver::Connection model_;
  sqlite3* db_ = nullptr;
  korvmailserver::CompiledStatements compiled_;
  Known users_, groups_, domains_;
};

}  // namespace MDOMAIN::HISTORY

#endif  // LIB_DOMAIN_HISTORY_NAMES_H
