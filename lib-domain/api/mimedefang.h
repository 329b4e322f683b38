// Disclaimers of each domain and the configuration from which the MIMEDefang filter applies them.
#ifndef LIB_DOMAIN_API_MIMEDEFANG_H
#define LIB_DOMAIN_API_MIMEDEFANG_H

#include <json/value.h>

#include <string>
#include <vector>

#include "platform/include/config.h"

class MimeDefang : public Config {
 public:
  MimeDefang();
  ~MimeDefang() override;

  int LoadSettings() override;
  int SaveSettings() override;

  int GetDisclaimerList(int domain_idx, Json::Value& list);
  int SetDisclaimerList(int domain_idx, const Json::Value& list);
  int GetSystemAllDisclaimerList(Json::Value& all);
  int SetSystemAllDisclaimerList(const Json::Value& all);
  int RemoveAllDisclaimerList();
  int RemoveAllDisclaimerContent();
  int SeparateContentFromDisclaimer(int domain_idx, Json::Value& list);
  int MergeDisClaimerWithContent(int domain_idx, Json::Value& list);
  bool RemoveRulesByIds(int domain_idx, const std::vector<unsigned int>& ids,
                        const std::string& type);
  bool RemoveRulesByUsers(int domain_idx, const std::vector<unsigned int>& uids);
  bool RemoveRulesByGroups(int domain_idx, const std::vector<unsigned int>& gids);
  int UpdateRunKey();
  int BackupRestoreDisclaimerFile(const std::string& from, const std::string& to);
  int MoveDisclaimerToBkpAccount();
  int RestoreDisclaimerFromFile();
  int GenDisclaimerConfigs(Json::Value& config);

 private:
  bool mimedefang_enable_ = true;
};

#endif  // LIB_DOMAIN_API_MIMEDEFANG_H
