// Automatic blind-copy rules: for an address, an account or a whole domain.
#ifndef LIB_DOMAIN_API_BCC_H
#define LIB_DOMAIN_API_BCC_H

#include <list>
#include <memory>
#include <string>
#include <vector>

class DBHandler;

enum BccType : int {
  BCC_RECIPIENT = 0,  // mail to
  BCC_SENDER = 1,     // mail from
  BCC_DOMAIN = 2,     // a whole domain
};

struct BccInfo {
  std::string name;  // the address, account or domain that the rule applies to
  int type = BCC_RECIPIENT;
  std::string bcc_to;  // destination: an address, or an account or alias without domain
};

class BCC {
 public:
  struct Filter {
    int type = BCC_RECIPIENT;
    int offset = 0;
    int limit = -1;
    std::string sort_column = "name";
    std::string sort_direction = "asc";
  };

  static BCC* getInstance();
  static BCC* getInstance(int domain_id);
  static BCC* getInstance(const std::string& db_path);
  ~BCC();
  BCC(const BCC&) = delete;
  BCC& operator=(const BCC&) = delete;

  int setBCC(const std::list<BccInfo>& rules);
  int addBCC(int type, const std::string& name, const std::string& bcc_to);
  int deleteAllBCC();
  int deleteAllBCC(int domain_id);
  int deleteBCC(const std::list<BccInfo>& rules);
  int deleteBCC(const std::list<std::string>& destinations);
  int deleteBCC(int domain_id, const std::list<std::string>& destinations);
  int LoadBCCList(int type, int domain_id, int offset, int limit, const std::string& sort_column,
                  const std::string& sort_order, std::list<BccInfo>& rules);
  int getBCCList(const Filter& filter, std::list<BccInfo>& rules);
  int getTotalBccNum(const Filter& filter);
  int getSystemAllBCCList(std::list<BccInfo>& rules);
  int exportBCC(int type, const std::string& path);
  int importBCC(int type, const std::string& path);
  int GenerateSystemBCCConfig(int type, const std::string& path);
  int GenerateBccMap();

 private:
  BCC(int domain_id, const std::string& db_path);

  int domain_id_;
  std::string db_path_;
  std::unique_ptr<DBHandler> handler_;
};

#endif  // LIB_DOMAIN_API_BCC_H
