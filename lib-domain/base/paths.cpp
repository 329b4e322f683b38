// The fixed paths, each formed in one place.
#include "lib-domain/base/paths.h"

#include "platform/include/root_path.h"
#include "platform/include/text.h"

namespace MDOMAIN::PATHS {

using korvmailserver::UnderRoot;

std::string EtcDir() {
  return UnderRoot("/var/packages/Postara-Server/etc/");
}

std::string TargetEtcDir() {
  return UnderRoot("/var/packages/Postara-Server/target/etc/");
}

std::string DomainDb(const std::string& account_domain) {
  return EtcDir() + account_domain + "_" + "DOMAIN" + ".db";
}

std::string SettingsDb() {
  return EtcDir() + "mailserver.db";
}

std::string AliasDb() {
  return EtcDir() + "alias.db";
}

std::string EmailOwnerDb() {
  return TargetEtcDir() + "email_owner.db";
}

std::string LoginDb() {
  return TargetEtcDir() + "email_login.db";
}

std::string PostfixAddresses() {
  return TargetEtcDir() + "postfix_addresses";
}

std::string PostfixDomains() {
  return TargetEtcDir() + "postfix_domains";
}

std::string HistoryDb() {
  return EtcDir() + "history.db";
}

std::string KeyStoreDb() {
  return EtcDir() + "keystore.db";
}

std::string DkimPrivateKey(int domain_idx) {
  return EtcDir() + "dkim.key//dkim.private-" + std::to_string(domain_idx);
}

std::string DkimPublicKey(int domain_idx) {
  return EtcDir() + "dkim.key//dkim.public-" + std::to_string(domain_idx);
}

std::string ChangedUserDir() {
  return UnderRoot("/var/run/postara_server/update_smtp_user_list/");
}

std::string DisclaimerDir() {
  return EtcDir() + "disclaimer_content";
}

std::string DisclaimerContent(int domain_idx) {
  return DisclaimerDir() + "/domain-" + std::to_string(domain_idx);
}

std::string DisclaimerList() {
  return EtcDir() + "disclaimer_list";
}

std::string DisclaimerBackupDir() {
  return UnderRoot("/var/spool/@Postara-Server/alias_bkp");
}

std::string BccMapCompiler() {
  return UnderRoot("/var/packages/Postara-Server/target/bin/korv_bcc_map");
}

std::string LockFile() {
  return UnderRoot("/var/run/postara_server/mdomain.lock");
}

std::string RefreshNote() {
  return UnderRoot("/var/run/postara_server/refreshed");
}

std::string PulledMapsMark() {
  return EtcDir() + ".postfix-maps";
}

std::string LastRefresh() {
  return UnderRoot("/var/run/postara_server/last-refresh");
}

std::string ModelBeforePull() {
  return EtcDir() + ".before-pull.db";
}

std::string AfterPullHooks() {
  return UnderRoot("/etc/mailserver-domain/hooks/after-pull.d");
}

bool IsFileNamePart(const std::string& name) {
  return name.find('/') == std::string::npos && name.find("..") == std::string::npos &&
         !korvmailserver::HasControlCharacter(name);
}

}  // namespace MDOMAIN::PATHS
