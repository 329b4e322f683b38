// The e-mail owner registry: which account owns an address. A database of its own.
#ifndef LIB_DOMAIN_DB_EMAIL_OWNER_H
#define LIB_DOMAIN_DB_EMAIL_OWNER_H

#include <string>
#include <vector>

#include "lib-domain/record/address_part.h"
#include "platform/include/db_handler.h"

namespace MDOMAIN::DB {

class EmailOwner : public DBHandler {
 public:
  EmailOwner();  // the default file
  explicit EmailOwner(const std::string& path);
  ~EmailOwner() override;

  bool CreateLocalPart(const std::vector<RECORD::LocalPart>& parts);
  bool CreateDomainPart(const std::vector<RECORD::DomainPart>& parts);
  bool GetOwner(const std::string& local_part, const std::string& domain_name,
                std::string& user_name);

 private:
  int status_;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_EMAIL_OWNER_H
