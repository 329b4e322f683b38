// The Postfix of this host: its settings by postconf, its maps by postmap, itself by postfix.
#ifndef TOOLS_MDOMAIN_POSTFIX_HOST_H
#define TOOLS_MDOMAIN_POSTFIX_HOST_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/include/process.h"

namespace mdomain {

// Runs a program of the host, and ends the command when that cannot be done or takes minutes.
korvmailserver::ProgramEnd RunHostProgram(const std::string& path,
                                          const std::vector<std::string>& arguments,
                                          const std::string& input = "");

// Why it failed, for a message: the last line of what it said.
std::string LastLine(const korvmailserver::ProgramEnd& end);

// "a b, { c, d }" in its parts; what stands in braces is one.
std::vector<std::string> SplitSetting(const std::string& value);
std::string JoinSetting(const std::vector<std::string>& parts);

class PostfixHost {
 public:
  // Reads all settings. The folder with main.cf; empty: Postfix's own.
  explicit PostfixHost(std::string folder);

  // As main.cf has it, or Postfix's default.
  const std::string& Setting(const std::string& name) const;
  // With the names of other settings in it replaced by their values.
  const std::string& Value(const std::string& name) const;
  bool IsInMainCf(const std::string& name) const { return in_main_cf_.count(name) != 0; }
  // The settings in main.cf that name this text, such as a map.
  std::vector<std::string> ListNaming(const std::string& text) const;
  bool HasMapType(const std::string& type) const { return map_types_.count(type) != 0; }
  const std::set<std::string>& MapTypes() const { return map_types_; }
  std::string MainCf() const { return Value("config_directory") + "/main.cf"; }
  // Whether one of these services ("lmtp/unix", "*/inet") that run a program sees the queue's
  // folder as the root.
  bool IsChrooted(const std::string& services, const std::string& program) const;

  // The keys that a map ("lmdb:/path") has, with their values. One process, whatever their number.
  std::map<std::string, std::string> LookUp(const std::string& map,
                                            const std::vector<std::string>& keys) const;
  // Everything in it.
  std::map<std::string, std::string> ListEntries(const std::string& map) const;
  // Writes these "NAME=VALUE" to main.cf.
  void Set(const std::vector<std::string>& settings) const;
  bool IsRunning() const;
  void Reload() const;

 private:
  korvmailserver::ProgramEnd _RunHere(const std::string& program,
                                      std::vector<std::string> arguments,
                                      const std::string& input = "") const;
  std::map<std::string, std::string> _ReadSettings(const std::vector<std::string>& options) const;

  std::string folder_;
  std::map<std::string, std::string> settings_;
  std::map<std::string, std::string> values_;
  std::map<std::string, std::string> in_main_cf_;
  std::set<std::string> map_types_;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_POSTFIX_HOST_H
