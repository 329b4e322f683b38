// Identity, size and times of each file tell: a run takes longer than the clock of the file system,
// so what it writes has other times than what was there when it began.
#include "tools/mdomain/stored_state.h"

#include <sys/stat.h>

#include <sstream>
#include <vector>

#include "lib-domain/base/paths.h"
#include "platform/include/files.h"

namespace mdomain {
namespace {

bool IsDatabase(const std::string& name) {
  const std::string ending = ".db";
  return name.size() > ending.size() &&
         name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

void AppendState(const std::string& folder, std::ostringstream& text) {
  std::vector<std::string> names;
  postara::sdk::EnumDirectory(folder, names);  // a folder that is not there has none
  for (const std::string& name : names) {
    struct stat info {};
    if (IsDatabase(name) && stat((folder + name).c_str(), &info) == 0) {
      text << folder << name << " " << info.st_ino << " " << info.st_size << " "
           << info.st_mtim.tv_sec << "." << info.st_mtim.tv_nsec << " " << info.st_ctim.tv_sec
           << "." << info.st_ctim.tv_nsec << "\n";
    }
  }
}

}  // namespace

std::string StoredState() {
  std::ostringstream text;
  AppendState(MDOMAIN::PATHS::EtcDir(), text);
  AppendState(MDOMAIN::PATHS::TargetEtcDir(), text);
  return text.str();
}

}  // namespace mdomain
