// The one connection to the domain database: opening, schema upgrade, row-returning queries.
#ifndef LIB_DOMAIN_DB_HANDLER_H
#define LIB_DOMAIN_DB_HANDLER_H

#include <string>
#include <vector>

#include "platform/include/db_handler.h"

namespace MDOMAIN::DB {

class DomainDBHandler : public DBHandler {
 public:
  static DomainDBHandler* GetDomainDBHandler();
  static void CloseDomainDBHandler();

  explicit DomainDBHandler(const std::string& path);
  ~DomainDBHandler() override;

  int ConnectAndUpgrade();
  int createDB();
  std::vector<std::vector<std::string>> ExecSelectCmd(const std::string& sql);

 private:
  int _InitPragma();
  int _GetNowVersion();
  int _UpgradeDB(int version);

  static DomainDBHandler* _singleDomainDBHandler;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_HANDLER_H
