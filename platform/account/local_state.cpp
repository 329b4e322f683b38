// The states of the files that local_source.cpp reads.
#include "platform/account/sources.h"
#include "platform/include/file_state.h"
#include "platform/include/host_settings.h"
#include "platform/system/file_stamp.h"

namespace korvmailserver {

std::string FileState(const std::string& path) {
  const FileStamp stamp = FileStamp::Of(path);
  if (!stamp.exists) {
    return path + " none ";
  }
  const std::string text = stamp.Text();
  return text.empty() ? text : path + " " + text;
}

std::string LocalAccountsState() {
  if (account::IsSnapshotOpen() || !account::AreLocalAccountsPlain()) {
    return "";
  }
  std::vector<std::string> files = account::LocalAccountFiles();
  files.push_back(HostSettingsPath());
  std::string all;
  for (const std::string& path : files) {
    const std::string state = FileState(path);
    if (state.empty()) {
      return "";
    }
    all += state;
  }
  return all;
}

}  // namespace korvmailserver
