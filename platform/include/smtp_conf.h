// The SMTP settings as the mail services read them: the published keys "virtual_multiple_domain",
// "additional_domain-N", "smtp_main_domain", and the older single-domain keys.
#ifndef PLATFORM_SMTP_CONF_H
#define PLATFORM_SMTP_CONF_H

#include <list>
#include <map>
#include <string>

#include "platform/include/export.h"

class MDOMAIN_EXPORT SmtpConf {
 public:
  // Reads everything anew with two queries. An entry of the domain list that is not INDEX/NAME, or
  // repeats an index, is left out with a warning. 0; or negative with one log line and nothing
  // changed when the configuration cannot be read.
  int LoadSettings();
  // The id of a published domain of this name (ASCII case ignored); negative when there is none.
  int GetDomainId(const std::string& name) const;
  // 0 and the names in stored order, none for a domain without additional names. Negative, with
  // `names` untouched, when the id is not published.
  int GetAdditionalDomainList(int domain_id, std::list<std::string>& names) const;
  // Domain id to name of every published domain.
  const std::map<int, std::string>& GetMultiDomainMap() const { return domains_; }
  // The older settings' further names of the main domain ("smtp_canonical_domain", separated by
  // commas or blanks).
  const std::list<std::string>& GetCanonicalDomain() const { return canonical_; }
  const std::string& GetMainDomain() const { return main_domain_; }

 private:
  std::map<int, std::string> domains_;
  std::map<int, std::list<std::string>> additional_;
  std::list<std::string> canonical_;
  std::string main_domain_;
};

#endif  // PLATFORM_SMTP_CONF_H
