// Disclaimers: texts that the MIMEDefang filter appends to mail, per domain, with match rules and
// exception rules.
//
// A domain's list is the configuration value "mimedefang_disclaimers-N", a JSON array; its texts
// lie apart, in etc/disclaimer_content/domain-N below the package's folder, and are joined to it by
// "id". Callers see both as one.
// A disclaimer is an object with "id" (integer, unique within the domain), "name", "enabled",
// "disabled_for_local_recipient", "op" ("and" or "or"), "match_rule_list", "exception_rule_list",
// "content_html", "content_txt". A rule has "target" ("sender"; anything else is the recipient),
// "pattern_type" ("email", "uid", "gid") and "pattern" (an address in which "*" stands for any
// text, or a number).
//
// Integer results are 0, or negative with one error line; boolean ones true, or false with one.
// For one thread at a time, with all else of the library (domain.h).
#ifndef LIB_DOMAIN_API_MIMEDEFANG_H
#define LIB_DOMAIN_API_MIMEDEFANG_H

#include <json/value.h>

#include <string>
#include <vector>

#include "platform/include/config.h"
#include "platform/include/export.h"

class MDOMAIN_EXPORT MimeDefang : public Config {
 public:
  // Registers the boolean setting "mimedefang_enable", true by default.
  MimeDefang();
  ~MimeDefang() override;
  MimeDefang(const MimeDefang&) = delete;
  MimeDefang& operator=(const MimeDefang&) = delete;

  int LoadSettings() override;
  // UpdateRunKey, then saves.
  int SaveSettings() override;

  // The domain's disclaimers with their texts, in stored order; a domain without any gives an empty
  // array. A stored text that is not a JSON array of objects, or a content file that is there but
  // cannot be read, is a failure, so that nobody writes over what is stored. A missing content file
  // is logged and gives the list without texts. `list` is untouched on failure.
  int GetDisclaimerList(int domain_idx, Json::Value& list);

  // Replaces the domain's disclaimers and publishes their texts. A crash in between leaves the old
  // or the new ones, never a list without its texts. `list` must be an array of objects, nested no
  // deeper than GetDisclaimerList reads (64 levels), for a domain of the model; [] for any.
  int SetDisclaimerList(int domain_idx, const Json::Value& list);

  // Whether `list` is an array of disclaimers as described above; otherwise `error` names the wrong
  // member by its path ("[2].match_rule_list[0].pattern: ...").
  static bool CheckDisclaimerList(const Json::Value& list, std::string& error);

  // Every domain's disclaimers: an array of objects with "domain_id" and "disclaimer_list".
  int GetSystemAllDisclaimerList(Json::Value& all);
  // Sets the list of every element whose "disclaimer_list" is an array; others are passed over.
  int SetSystemAllDisclaimerList(const Json::Value& all);

  // Removes the lists of all domains. The first that cannot be removed ends the call.
  int RemoveAllDisclaimerList();
  // Removes every content file. One that cannot be removed is a failure; the others go all the
  // same.
  int RemoveAllDisclaimerContent();

  // Writes the texts of `list` to the content file, publishes it and takes them out of `list`.
  int SeparateContentFromDisclaimer(int domain_idx, Json::Value& list);
  // Puts the texts of the content file back into `list`, by "id".
  int MergeDisClaimerWithContent(int domain_idx, Json::Value& list);

  // Removes the rules of pattern type `type` ("uid" or "gid") whose pattern is one of `ids` from
  // the domain's disclaimers. Writes nothing when no rule is removed.
  bool RemoveRulesByIds(int domain_idx, const std::vector<unsigned int>& ids,
                        const std::string& type);
  bool RemoveRulesByUsers(int domain_idx, const std::vector<unsigned int>& uids);
  bool RemoveRulesByGroups(int domain_idx, const std::vector<unsigned int>& gids);

  // Sets "mimedefang_enable" in this object: whether any domain has an enabled disclaimer or
  // another part of the filter is switched on. A domain whose list cannot be read counts as having
  // one, so that a broken list does not stop the filter.
  int UpdateRunKey();

  // Moves the current disclaimers into the file `to` and, if `from` exists, moves it to where
  // RestoreDisclaimerFromFile() reads. The domains have no lists afterwards.
  int BackupRestoreDisclaimerFile(const std::string& from, const std::string& to);
  // Puts the disclaimers of one account domain aside and brings those of another one back, in
  // /var/spool/@Postara-Server/alias_bkp: what `old_account` has now is kept there under its name,
  // and what was kept of `new_account`, if anything, is in force again.
  int MoveDisclaimerToBkpAccount(const std::string& old_account, const std::string& new_account);
  // Replaces all disclaimers by those of the package's etc/disclaimer_list or of `path`. The file
  // is read and checked before anything is removed; one that names an unknown domain, or has an
  // element without a domain, is refused.
  int RestoreDisclaimerFromFile();
  int RestoreDisclaimerFromFile(const std::string& path);
  // Writes every domain's disclaimers to a file, whole or not at all.
  int BackupDisclaimerToFile(const std::string& path);

  // The filter's configuration: an object with "all_domain_map", "local_domain_map",
  // "gid_username_map" and "disclaimer_list". Each entry of the last is an enabled disclaimer with
  // its "condition", a Perl expression over $Sender, $SenderName, $SenderDomain, $Recipient,
  // $RecipientName, $RecipientDomain and the maps. Keys of the maps are in lower case. A rule about
  // an account that is gone is left out; while the account system does not tell whether it is gone,
  // the call fails.
  int GenDisclaimerConfigs(Json::Value& config);
  // The same maps, of all domains, with the disclaimers of one domain and what they were built
  // from: the entries of "disclaimer_list" have "domain_id", "place" (in the stored list), "op",
  // "match", "exceptions", "match_left_out" and "exceptions_left_out" besides. "match" and
  // "exceptions" are arrays of objects with "index" (place in the stored rules), "test" (a Perl
  // expression), "target" and what that is compared with ("globs", "aliases" or "gid"); the last
  // two are the places of rules that could not be used.
  int ExplainDisclaimerConfigs(int domain_idx, Json::Value& config);

 private:
  bool mimedefang_enable_ = true;
};

#endif  // LIB_DOMAIN_API_MIMEDEFANG_H
