// Automatic blind-copy rules: for an address, an account or a whole domain, every message is also
// delivered to a destination.
//
// The rules are rows of bcc_table in the mail server's settings database (mailserver.db), unique by
// name, type and domain. bcc/rules.cpp owns the table, bcc/rule_file.cpp the text files that are
// imported and exported, bcc/map.cpp the maps that the mail transfer agent reads.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_BCC_H
#define LIB_DOMAIN_API_BCC_H

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/include/export.h"

class DBHandler;
struct sqlite3;

enum BccType : int {
  BCC_RECIPIENT = 0,  // mail to `name` is copied
  BCC_SENDER = 1,     // mail from `name` is copied
  BCC_DOMAIN = 2,     // mail to and from every address of the domain is copied
};

struct BccInfo {
  std::string name;  // the address, account or domain that the rule applies to
  int type = BCC_RECIPIENT;
  std::string bcc_to;  // destination: an address, or an account or alias without domain
};

// One line of a map, as ForEachMapEntry hands it out. The views live as long as the call.
struct BccMapEntry {
  enum class Form {
    kAddress,  // an address of `domain`
    kAccount,  // an account or alias in the context of `domain`, or an address of another domain
    kDomain,   // every address of `domain`
    kLeftOut,  // no line, for the reason given; `name` and `value` are the rule's own
  };
  Form form = Form::kAddress;
  int domain_id = 0;
  std::string_view domain;  // one spelling of one name of the domain
  std::string_view name;    // one spelling of the rule's name, in lower case
  std::string_view value;   // the destination, in punycode
  const BccInfo* rule = nullptr;
  // kAccount: the domain that owns the address in `name`; negative when no published domain does,
  // or when `name` is no address.
  int name_domain_id = -1;
  // kAccount without "@": the local parts of the account in the domain, or the name itself when it
  // is an alias entry or an account without aliases. Only when they were asked for, else null.
  const std::vector<std::string>* local_parts = nullptr;
  // Whether `value` is an address of a published domain that nobody has.
  bool unknown_destination = false;
  std::string_view reason;  // kLeftOut: why
};

// All operations return 0 on success and a negative number on failure, with one line in the log,
// unless stated. A failed operation changes no rule. Those without a domain id work on the object's
// domain.
class MDOMAIN_EXPORT BCC {
 public:
  struct Filter {
    int type = BCC_RECIPIENT;
    int offset = 0;
    int limit = -1;                      // negative: no limit
    std::string sort_column = "name";    // name, type, bcc_to or domain_id
    std::string sort_direction = "asc";  // asc or desc
  };

  // The process-wide object, made by the first call that succeeds, opening (and, with the whole
  // schema of the settings database, creating) the file. Null when it cannot be opened; the next
  // call tries again. The domain id and the file count only when the object is made; later calls
  // return the object that exists. To be sure not to touch another domain's rules, use the
  // operations that name a domain.
  static BCC* getInstance();                            // domain 0
  static BCC* getInstance(int domain_id);               // the given domain
  static BCC* getInstance(const std::string& db_path);  // domain 0, another file
  ~BCC();
  BCC(const BCC&) = delete;
  BCC& operator=(const BCC&) = delete;

  // Inserts rules in one transaction; a rule with the same name and type is replaced. Values are
  // stored as they are, so the caller calls CheckRule first; one with a zero byte is refused, and
  // so are rules for a domain that is not among the model's.
  int setBCC(const std::list<BccInfo>& rules);
  int setBCC(int domain_id, const std::list<BccInfo>& rules);
  int addBCC(int type, const std::string& name, const std::string& bcc_to);

  // Removes every rule of the domain, and of no other.
  int deleteAllBCC();
  int deleteAllBCC(int domain_id);
  // Removes rules by name and type, both exactly as stored; a rule that is not there is skipped.
  int deleteBCC(const std::list<BccInfo>& rules);
  int deleteBCC(int domain_id, const std::list<BccInfo>& rules);
  // Removes the rules of every type whose destination is one of these, ignoring ASCII case.
  int deleteBCC(const std::list<std::string>& destinations);
  int deleteBCC(int domain_id, const std::list<std::string>& destinations);

  // A page of the rules of a type. Rules that are equal in the sort column follow by name, so pages
  // neither repeat nor lose one. Another column or direction than Filter names is refused. `rules`
  // is replaced on success and untouched on failure.
  int LoadBCCList(int type, int domain_id, int offset, int limit, const std::string& sort_column,
                  const std::string& sort_order, std::list<BccInfo>& rules);
  // The same page, for a listing of any length: calls `visit` for one rule after the other, which
  // must not change them. Before a failure some were handed out.
  using RuleVisitor = std::function<void(BccInfo&& rule)>;
  int ForEachRule(int type, int domain_id, int offset, int limit, const std::string& sort_column,
                  const std::string& sort_order, const RuleVisitor& visit);
  int getBCCList(const Filter& filter, std::list<BccInfo>& rules);
  // Number of the domain's rules of the filter's type, without regard to offset and limit; negative
  // on failure.
  int getTotalBccNum(const Filter& filter);
  // Every rule of every domain, by domain, type and name.
  int getSystemAllBCCList(std::list<BccInfo>& rules);

  // Publishes the database file under "bcc_db", from which other machines read the rules. No other
  // operation publishes: call this once after the last change.
  int PublishRules();

  // Says for a person what keeps a rule out of files and maps; empty when nothing does. A name is
  // an address (RFC 5321, 6531), an account or an alias; for a whole domain it is a domain. A
  // destination is an address, an account or an alias. A type that is none of BccType is told, too.
  static std::string CheckRule(const BccInfo& rule);

  // Appends a sentence for each destination of rules of the domain to which no copy can go: an
  // address of a published domain that nobody has, an account without an address there.
  static int CheckDestinations(int domain_id, const std::list<BccInfo>& rules,
                               std::vector<std::string>& warnings);

  // The same of the rules of several domains, by domain: what is published is read once.
  static int CheckAllDestinations(const std::map<int, std::list<BccInfo>>& rules,
                                  std::map<int, std::vector<std::string>>& warnings);

  // Writes the rules of a type, one "NAME DESTINATION" line each, by name descending, and replaces
  // the file. Addresses stand in punycode, but a name in another spelling than its usual one, or
  // beside a rule of the punycode name, stands as it is stored, so that an import gives the same
  // file again. A rule that cannot stand in one line fails the export, and the old file stays.
  int exportBCC(int type, const std::string& path);
  int exportBCC(int domain_id, int type, const std::string& path);
  // Adds the rules of such a file, as one transaction. Fields are separated by blanks or tabs;
  // empty lines and lines that begin with "#" are skipped; lines may end in CR LF. Each line that
  // is not a rule is logged as "FILE:LINE: what is wrong", and then nothing is written. -1: the
  // file cannot be read; -2: it has bad lines; -3: the database failed.
  int importBCC(int type, const std::string& path);
  int importBCC(int domain_id, int type, const std::string& path);

  // Writes the lines of every published domain and additional domain for the rules of `type` and
  // the whole-domain rules, and replaces the file: "ADDRESS DESTINATION" for addresses of the
  // domain, "DOMAIN/NAME DESTINATION" for every other name, "@DOMAIN DESTINATION" for whole
  // domains; each in its UTF-8 and its punycode spelling. A rule that cannot stand in a line is
  // logged and left out. Several rules may give the same key.
  int GenerateSystemBCCConfig(int type, const std::string& path);
  // The same lines, handed to `visit` one by one in the same order, by name within each domain.
  // `with_local_parts` has the local parts of accounts looked up, and hands out rules that are left
  // out because their account has no address, which are logged otherwise.
  int ForEachMapEntry(int type, bool with_local_parts,
                      const std::function<void(const BccMapEntry&)>& visit);
  // Runs the map compiler, which writes and compiles the maps of both types. Its exit status;
  // negative when it cannot be started.
  int GenerateBccMap();

 private:
  // Called for each row of a query that selects name, type, bcc_to, domain_id.
  using RowVisitor = std::function<void(BccInfo&& rule, int domain_id)>;

  BCC(int domain_id, const std::string& db_path);
  static BCC* _Create(int domain_id, const std::string& db_path, bool log_no_memory);
  int _Init();
  sqlite3* _OpenFile();
  int _RunBatch(const std::vector<std::string>& statements);
  int _ForEachRow(const std::string& statement, const RowVisitor& visit);

  int domain_id_;
  std::string db_path_;
  std::unique_ptr<DBHandler> handler_;
};

namespace internal {

// Whether the alias table holds an entry with exactly this name and domain id. False also when it
// cannot be read.
MDOMAIN_EXPORT bool isAlias(const std::string& name, int domain_id);

// The address that a destination stands for in a domain. With an empty domain name, or with an "@"
// in the destination: the destination. An alias entry of the domain: the alias at the domain.
// Anything else is an account: its first alias in the domain that is not flagged, or its own name,
// at the domain. Empty for an account all of whose aliases are flagged, a spelling that may mean
// several accounts, and when the aliases cannot be read.
MDOMAIN_EXPORT std::string GetBccToConfigValue(const std::string& bcc_to,
                                               const std::string& domain_name, int domain_id);

}  // namespace internal

#endif  // LIB_DOMAIN_API_BCC_H
