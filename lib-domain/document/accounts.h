// The mirrored accounts and groups by the names that documents have for them.
#ifndef LIB_DOMAIN_DOCUMENT_ACCOUNTS_H
#define LIB_DOMAIN_DOCUMENT_ACCOUNTS_H

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::DOCUMENT {

struct SiteAccount {
  unsigned int id;
  std::string full_name;
  std::string name;  // the short one, the full one where two have the same short name
};

// Users, or groups.
class SiteAccountList {
 public:
  void Add(unsigned int id, const std::string& full_name);
  void End();
  // By short or full name; letter case counts only where two differ in it. Null without one.
  const SiteAccount* Find(const std::string& name) const;
  const SiteAccount* FindId(unsigned int id) const;
  // Of one that Find found before.
  unsigned int Id(const std::string& name) const;

 private:
  std::vector<SiteAccount> accounts_;
  std::unordered_map<std::string, std::vector<size_t>> by_name_;
  std::unordered_map<unsigned int, size_t> by_id_;
};

struct SiteAccounts {
  // Reads the mirror; throws a Problem.
  MDOMAIN_EXPORT SiteAccounts();

  SiteAccountList users;
  SiteAccountList groups;
};

}  // namespace MDOMAIN::DOCUMENT

#endif  // LIB_DOMAIN_DOCUMENT_ACCOUNTS_H
