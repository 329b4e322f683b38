// The files beside the domain database that other machines need to answer as this one does.
#ifndef LIB_DOMAIN_SYNC_NODE_PUBLICATION_H
#define LIB_DOMAIN_SYNC_NODE_PUBLICATION_H

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

// The key under which the domain database is published. The machine that published it manages the
// domains.
constexpr const char* kDatabaseKey = "mailserver_domain_db";

// Publishes those of them that changed since they were published: the settings database ("bcc_db"),
// the alias store ("alias_db"), the registry of address owners ("email_owner_db") and the texts of
// the disclaimers ("sync_disclaimer_content_file-N"). A file that does not exist is passed over.
// Where texts were removed and the domain's list of disclaimers is empty, their key goes, too;
// texts that are missing beside a list were lost, and stay published. Nothing is published when the
// key store is not shared between machines. False with a log line.
//
// Every publication of the domain data ends with it, so the next one publishes what a failure left
// out. A caller that changes one of these files without such a publication calls it afterwards.
MDOMAIN_EXPORT bool PublishNodeFiles();

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_NODE_PUBLICATION_H
