// Files are known by their name and a lock of their maker; the work folders of korv_bcc_map by
// their name, while nobody holds the lock under which it works.
#include "tools/mdomain/leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "platform/include/scope_guard.h"

namespace mdomain {
namespace {

namespace fs = std::filesystem;

constexpr char kMapFolder[] = ".bcc_map.";

void RemoveMapFolders(const std::string& folder) {
  const int lock = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (lock < 0) {
    return;
  }
  const postara::ScopeGuard close_lock([lock] { close(lock); });
  std::vector<std::string> names;
  if (flock(lock, LOCK_EX | LOCK_NB) != 0 || postara::sdk::EnumDirectory(folder, names) < 0) {
    return;
  }
  std::error_code ignored;
  for (const std::string& name : names) {
    if (name.rfind(kMapFolder, 0) == 0) {
      fs::remove_all(folder + name, ignored);
    }
  }
}

}  // namespace

void RemoveAllLeftovers() {
  using namespace MDOMAIN;
  for (const std::string& folder :
       {PATHS::EtcDir(), PATHS::TargetEtcDir(), PATHS::DisclaimerDir(),
        PATHS::DisclaimerBackupDir(), PATHS::LockFile().substr(0, PATHS::LockFile().rfind('/'))}) {
    korvmailserver::RemoveLeftovers(folder);
  }
  RemoveMapFolders(PATHS::TargetEtcDir());
}

}  // namespace mdomain
