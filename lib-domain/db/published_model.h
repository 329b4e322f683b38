// Which model file the published domains came from.
//
// Settings outside the domain database stand under domain indexes. The key kModelKey says whose
// indexes these are: the name of the model file, without its folder, which was last published with
// domains.
#ifndef LIB_DOMAIN_DB_PUBLISHED_MODEL_H
#define LIB_DOMAIN_DB_PUBLISHED_MODEL_H

#include <string>

namespace MDOMAIN::DB::INTERNAL {

constexpr const char* kModelKey = "mdomain_model";

struct PublishedModel {
  std::string file;          // "local_DOMAIN.db"; empty where no model was published with domains
  bool has_domains = false;  // the published list names a domain
  std::string main_domain;   // empty also for "localdomain", which stands for none
};

// False, with a line of the key store's, when the keys cannot be read.
bool ReadPublishedModel(PublishedModel& published);

// The name of a model file, given its path.
std::string ModelFileName(const std::string& path);

// Whether domains were published, and from another model file than the one at `path`.
bool IsOfOtherModel(const std::string& published_file, const std::string& path);

// Whether what stands under domain indexes outside the model in force belongs to the domains of
// another one: whoever clears up after this model's domains, users and groups leaves it alone.
// False with one log line when it cannot be told.
bool AreSettingsForeign(bool& are_foreign);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_PUBLISHED_MODEL_H
