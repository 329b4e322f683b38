// Any bytes as the host settings file: read whole, or refused with one text that names file and
// line and leaves the settings untouched.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "fuzz/target.h"
#include "platform/include/host_settings.h"

namespace {

// A root of this process, made once.
std::string MakeRoot() {
  static const std::string root =
      (std::filesystem::temp_directory_path() / ("host-settings-fuzz." + std::to_string(getpid())))
          .string();
  setenv("MDOMAIN_ROOT", root.c_str(), 1);
  std::filesystem::create_directories(root + "/etc/mailserver-domain");
  std::atexit([] { std::filesystem::remove_all(root); });
  return root;
}

}  // namespace

void fuzz::Run(const std::string& input) {
  static const std::string root = MakeRoot();
  const std::string path = korvmailserver::HostSettingsPath();
  std::ofstream(path, std::ios::binary) << input;
  korvmailserver::HostSettings settings;
  settings.keystore.master = "untouched";
  std::string error;
  if (korvmailserver::ReadHostSettings(settings, error)) {
    Require(error.empty());
    Require(settings.keystore.port >= 1 && settings.keystore.port <= 65535);
    Require(settings.keystore.sentinels.empty() == settings.keystore.master.empty());
  } else {
    const size_t line = path.size() + 1;
    Require(error.rfind(path + ":", 0) == 0);
    Require(error.size() > line && error[line] >= '1' && error[line] <= '9');
    Require(settings.keystore.master == "untouched");
  }
}
