// Every fixed path of the library, below the root prefix, which is read at each call.
#ifndef LIB_DOMAIN_BASE_PATHS_H
#define LIB_DOMAIN_BASE_PATHS_H

#include <string>

namespace MDOMAIN::PATHS {

std::string EtcDir();        // /var/packages/Postara-Server/etc/
std::string TargetEtcDir();  // /var/packages/Postara-Server/target/etc/
std::string DomainDb(const std::string& account_domain);  // .../etc/NAME_DOMAIN.db
std::string SettingsDb();                                 // .../etc/mailserver.db
std::string AliasDb();                                    // .../etc/alias.db
std::string EmailOwnerDb();                               // .../target/etc/email_owner.db
std::string LoginDb();                                    // .../target/etc/email_login.db
// .../target/etc/postfix_addresses and postfix_domains; the files have ".lmdb" behind
std::string PostfixAddresses();
std::string PostfixDomains();
std::string KeyStoreDb();                       // .../etc/keystore.db
std::string HistoryDb();                        // .../etc/history.db
std::string DkimPrivateKey(int domain_idx);     // .../etc/dkim.key//dkim.private-N
std::string DkimPublicKey(int domain_idx);      // .../etc/dkim.key//dkim.public-N
std::string ChangedUserDir();                   // /var/run/postara_server/update_smtp_user_list/
std::string DisclaimerDir();                    // .../etc/disclaimer_content
std::string DisclaimerContent(int domain_idx);  // .../etc/disclaimer_content/domain-N
std::string DisclaimerList();                   // .../etc/disclaimer_list
std::string DisclaimerBackupDir();              // /var/spool/@Postara-Server/alias_bkp
std::string BccMapCompiler();                   // .../target/bin/korv_bcc_map
std::string LockFile();                         // /var/run/postara_server/mdomain.lock
std::string RefreshNote();                      // /var/run/postara_server/refreshed
std::string PulledMapsMark();                   // .../etc/.postfix-maps
std::string LastRefresh();                      // /var/run/postara_server/last-refresh
std::string ModelBeforePull();                  // .../etc/.before-pull.db
std::string AfterPullHooks();                   // /etc/mailserver-domain/hooks/after-pull.d

// Whether a name from the settings may be a part of a file name: it leads into no other folder and
// no line is broken by it.
bool IsFileNamePart(const std::string& name);

}  // namespace MDOMAIN::PATHS

#endif  // LIB_DOMAIN_BASE_PATHS_H
