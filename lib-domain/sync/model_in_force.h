// The model in force beside what is published and what stands under domain indexes outside of it.
//
// The account domain chooses the model file. After a switch, or when a file was lost, the published
// keys and the settings outside (rules of blind copies, disclaimers, DKIM keys, aliases) belong to
// the domains of another model. What changes such things asks here first.
#ifndef LIB_DOMAIN_SYNC_MODEL_IN_FORCE_H
#define LIB_DOMAIN_SYNC_MODEL_IN_FORCE_H

#include <string>
#include <vector>

#include "platform/include/export.h"

namespace MDOMAIN::UTILS {

struct MDOMAIN_EXPORT ModelStanding {
  std::string path;            // the model file in force
  std::string published_file;  // name of the one that was last published with domains; or empty
  std::string main_domain;     // published, or of the older single-domain settings; or empty
  bool has_domains = false;
  bool is_emptied = false;             // without domains because the last one was deleted
  bool has_published_domains = false;  // the published list names domains

  // The published domains are those of another model file.
  bool IsOther() const;
  // The published domains came from this file, which has none any more and was not emptied.
  bool IsLost() const;
  // Publishing would empty what is published, and nobody deleted the last domain.
  bool WouldEmpty() const;
  // Why that is so, in one sentence that names the file; for log lines and messages.
  std::string Reason() const;
};

// False with one log line when the model or the published keys cannot be read.
MDOMAIN_EXPORT bool ReadModelStanding(ModelStanding& standing);

// What stands under domain indexes outside the model, each entry with its indexes: "BCC rules
// (1, 3)". Not the limits, which every domain is given. False with one log line when something
// cannot be read.
MDOMAIN_EXPORT bool ListOutsideSettings(std::vector<std::string>& settings);

// Removes all that ListOutsideSettings tells of; what is made from now on belongs to the model in
// force. False with a log line for each kind that is not removed as a whole.
MDOMAIN_EXPORT bool DiscardOutsideSettings();

// The name of the model file to which the settings outside belong when this model is published:
// the one in force, unless they are those of another model's domains.
std::string OwnerOfOutsideSettings(const ModelStanding& standing);

// The model file that is in force when the mail configuration has `value` under `key`; empty when
// no account domain is named then. False with a log line when the configuration cannot be read or
// forms no path.
MDOMAIN_EXPORT bool GetModelPathWith(const std::string& key, const std::string& value,
                                     std::string& path);

// For a process that goes on after the settings that name the account source were changed: works
// with the present ones from here on.
void TakeAccountSource();

// The names of the domains in a model file, which is only read; none where there is no such file or
// where it cannot be read.
MDOMAIN_EXPORT std::vector<std::string> ListDomainsOf(const std::string& model_path);

}  // namespace MDOMAIN::UTILS

#endif  // LIB_DOMAIN_SYNC_MODEL_IN_FORCE_H
