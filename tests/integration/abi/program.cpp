// What a program that was compiled against 1.0.0 does with the objects that it holds, in their size
// of then. Prints what it finds; what is written beside an object ends it (AddressSanitizer, or the
// guard).
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>
#include <vector>

#include "lib-domain/record/address_part.h"
#include "lib-domain/record/group.h"

namespace MDOMAIN {
namespace UTILS {
struct RefreshSummary {
  bool users_complete = false;
  bool groups_complete = false;
  size_t users = 0;
  size_t groups = 0;
  std::vector<std::string> new_users;
  std::vector<std::string> new_groups;
  std::vector<unsigned int> deleted_uids;
  std::vector<unsigned int> deleted_gids;
};
class Updater {
 public:
  bool AutoAddNewUsers(const std::vector<int>& domain_idxs);
  const RefreshSummary& GetSummary() const { return summary_; }

 private:
  std::unordered_set<unsigned int> new_uids_;
  std::vector<RECORD::Group> new_groups_;
  RefreshSummary summary_;
};
struct OwnerRegistryContent {
  std::vector<RECORD::DomainPart> domains;
  std::vector<RECORD::LocalPart> local_parts;
};
bool CollectOwners(OwnerRegistryContent& content);
bool ReplaceOwnerRegistry(const std::string& path, const OwnerRegistryContent& content);
bool FindStaleOwners(const std::string& path, const OwnerRegistryContent& content,
                     OwnerRegistryContent& stale);
}  // namespace UTILS
namespace API {
class Updater : public UTILS::Updater {
 public:
  bool Refresh();
  unsigned int GetErrorCode() const { return error_code_; }

 private:
  unsigned int error_code_ = 0;
};
}  // namespace API
namespace DB {
class EmailOwner {
 public:
  explicit EmailOwner(const std::string& path);
  virtual ~EmailOwner();
  bool GetOwner(const std::string& local_part, const std::string& domain, std::string& user_name);

 private:
  char rest_[152];
};
class DomainDBHandler {
 public:
  explicit DomainDBHandler(const std::string& path);
  virtual ~DomainDBHandler();
  int ConnectAndUpgrade();

 private:
  char rest_[136];
};
}  // namespace DB
}  // namespace MDOMAIN

namespace {

template <typename T>
struct Guarded {
  template <typename... Arguments>
  explicit Guarded(const Arguments&... arguments) : object(arguments...) {}
  ~Guarded() {
    if (std::strcmp(behind, "guard") != 0) {
      std::puts("an object is larger than it was");
    }
  }
  T object;
  char behind[64] = "guard";
};

}  // namespace

int main(int /*count*/, char** words) {
  const std::string path = words[1];
  const Guarded<MDOMAIN::API::Updater> updater;
  auto& run = const_cast<MDOMAIN::API::Updater&>(updater.object);
  const bool is_refreshed = run.Refresh() && run.AutoAddNewUsers({1});
  std::printf("%d %zu %zu %u\n", is_refreshed, run.GetSummary().users,
              run.GetSummary().new_users.size(), run.GetErrorCode());
  Guarded<MDOMAIN::UTILS::OwnerRegistryContent> content;
  Guarded<MDOMAIN::UTILS::OwnerRegistryContent> stale;
  const bool is_made = MDOMAIN::UTILS::CollectOwners(content.object) &&
                       MDOMAIN::UTILS::ReplaceOwnerRegistry(path, content.object);
  content.object.local_parts.pop_back();
  const bool is_told = MDOMAIN::UTILS::FindStaleOwners(path, content.object, stale.object);
  std::printf("%d %d %zu\n", is_made, is_told, stale.object.local_parts.size());
  Guarded<MDOMAIN::DB::EmailOwner> owners(path);
  std::string owner;
  const bool is_found = owners.object.GetOwner("anna", "example.com", owner);
  std::printf("%d %s\n", is_found, owner.c_str());
  Guarded<MDOMAIN::DB::DomainDBHandler> handler(path + ".model");
  std::printf("%d\n", handler.object.ConnectAndUpgrade());
}
