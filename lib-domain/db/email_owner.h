// The e-mail owner registry: which account owns an address. A database file of its own.
//
// Other programs of the package fill it and look owners up in it for every message they handle. It
// does not use the domain database or its handler. ASCII case makes no difference, neither in the
// local part nor in the domain. The store adds two indexes when it opens the file, so that a
// look-up is as quick with a million addresses as with a hundred; a file that cannot take them
// (read-only) gives the same answers without them.
#ifndef LIB_DOMAIN_DB_EMAIL_OWNER_H
#define LIB_DOMAIN_DB_EMAIL_OWNER_H

#include <memory>
#include <string>
#include <vector>

#include "lib-domain/record/address_part.h"
#include "platform/include/db_handler.h"
#include "platform/include/export.h"

namespace korvmailserver {
class Statement;
}

namespace MDOMAIN::DB {

class MDOMAIN_EXPORT EmailOwner : public DBHandler {
 public:
  // Opens the default file or `path`, creating it with its tables, and its folder, when it is
  // missing. A file that cannot be used (a directory, garbage, locked for more than the handler's
  // 10 seconds) gives one log line that says so; every operation then fails with "Open DBHandler
  // cannot open before". A file that may only be read answers look-ups. When another file takes the
  // name later, the next operation opens that one; a file that is only removed goes on answering.
  EmailOwner();
  explicit EmailOwner(const std::string& path);
  ~EmailOwner() override;

  // Adds the rows that are not there yet, all in one transaction. A (local part, domain index) or a
  // domain name that is there already keeps its row with the owner that it has: nothing is ever
  // overwritten. The keys tell letter cases apart, so "Info" and "info" can both be there; a
  // look-up then gives the older one. False with nothing written when the database refuses or a
  // text holds a zero byte, which no statement could carry whole.
  bool CreateLocalPart(const std::vector<RECORD::LocalPart>& parts);
  bool CreateDomainPart(const std::vector<RECORD::DomainPart>& parts);

  // The account that owns LOCAL_PART@DOMAIN_NAME. True with `user_name` empty when the domain or
  // the local part in it is unknown, also for texts that are no address. False when the database
  // could not be read: `user_name` empty (locked, damaged, tables missing), or untouched when it
  // could not be opened at all.
  bool GetOwner(const std::string& local_part, const std::string& domain_name,
                std::string& user_name);

 private:
  void _Open();
  void _FollowReplacedFile();
  bool _IsOpen();
  bool _StepGetOwner(const std::string& local_part, const std::string& domain_name, int& result);

  // Kept between look-ups: preparing it costs several times what running it does.
  std::unique_ptr<korvmailserver::Statement> get_owner_;
  int status_ = -1;
  bool was_open_ = false;
};

}  // namespace MDOMAIN::DB

#endif  // LIB_DOMAIN_DB_EMAIL_OWNER_H
