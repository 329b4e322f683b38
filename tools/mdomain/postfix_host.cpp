#include "tools/mdomain/postfix_host.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

using korvmailserver::ProgramEnd;

constexpr const char* kPostconf = "/usr/sbin/postconf";
constexpr const char* kPostmap = "/usr/sbin/postmap";
constexpr const char* kPostfix = "/usr/sbin/postfix";
constexpr int kDeadline = 300;  // seconds

// "name = value", as postconf prints it.
void AddSetting(const std::string& line, std::map<std::string, std::string>& settings) {
  const size_t equals = line.find(" =");
  if (equals != std::string::npos) {
    settings[line.substr(0, equals)] =
        line.size() > equals + 3 ? line.substr(equals + 3) : std::string();
  }
}

// "key<tab>value", as postmap prints it.
std::map<std::string, std::string> EntriesIn(const std::string& output) {
  std::map<std::string, std::string> entries;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const size_t tab = line.find('\t');
    if (tab != std::string::npos) {
      entries[line.substr(0, tab)] = line.substr(tab + 1);
    }
  }
  return entries;
}

const std::string& ValueOf(const std::map<std::string, std::string>& settings,
                           const std::string& name) {
  static const std::string* const kNone = new std::string();
  const auto found = settings.find(name);
  return found == settings.end() ? *kNone : found->second;
}

}  // namespace

ProgramEnd RunHostProgram(const std::string& path, const std::vector<std::string>& arguments,
                          const std::string& input) {
  korvmailserver::ProgramCall call;
  call.path = path;
  call.arguments = arguments;
  call.environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8"};
  call.input = input;
  call.seconds = kDeadline;
  call.is_split = true;
  ProgramEnd end = korvmailserver::RunProgram(call);
  if (end.status < 0) {
    throw Failure(kFailed, path + ": " + strerror(errno));
  }
  if (end.is_late) {
    throw Failure(kFailed, path + " did not end in " + std::to_string(kDeadline) + " seconds");
  }
  return end;
}

std::string LastLine(const ProgramEnd& end) {
  std::string text = end.errors.empty() ? end.output : end.errors;
  text.erase(text.find_last_not_of('\n') + 1);
  return text.substr(text.rfind('\n') + 1);
}

std::vector<std::string> SplitSetting(const std::string& value) {
  std::vector<std::string> parts;
  std::string part;
  int depth = 0;
  for (const char c : value + " ") {
    depth += c == '{' ? 1 : c == '}' ? -1 : 0;
    const bool is_between = std::string(", \t\r\n").find(c) != std::string::npos;
    if (depth > 0 || !is_between) {
      part += c;
    } else if (!part.empty()) {
      parts.push_back(std::exchange(part, ""));
    }
  }
  return parts;
}

std::string JoinSetting(const std::vector<std::string>& parts) {
  std::string value;
  for (const std::string& part : parts) {
    value += (value.empty() ? "" : ", ") + part;
  }
  return value;
}

PostfixHost::PostfixHost(std::string folder) : folder_(std::move(folder)) {
  settings_ = _ReadSettings({});
  values_ = _ReadSettings({"-x"});
  in_main_cf_ = _ReadSettings({"-n"});
  std::istringstream types(_RunHere(kPostconf, {"-m"}).output);
  for (std::string type; types >> type;) {
    map_types_.insert(type);
  }
}

const std::string& PostfixHost::Setting(const std::string& name) const {
  return ValueOf(settings_, name);
}

const std::string& PostfixHost::Value(const std::string& name) const {
  return ValueOf(values_, name);
}

std::vector<std::string> PostfixHost::ListNaming(const std::string& text) const {
  std::vector<std::string> names;
  for (const auto& [name, setting] : in_main_cf_) {
    if (setting.find(text) != std::string::npos || Value(name).find(text) != std::string::npos) {
      names.push_back(name);
    }
  }
  return names;
}

bool PostfixHost::IsChrooted(const std::string& services, const std::string& program) const {
  const auto fields = _ReadSettings({"-F", services});
  const bool is_default = Value("compatibility_level").substr(0, 1) == "0";
  return std::any_of(fields.begin(), fields.end(), [&](const auto& field) {
    const size_t slash = field.first.rfind('/');
    const std::string chroot = ValueOf(fields, field.first.substr(0, slash) + "/chroot");
    return field.first.substr(slash + 1) == "command" && field.second.rfind(program, 0) == 0 &&
           (chroot == "y" || (chroot == "-" && is_default));
  });
}

std::map<std::string, std::string> PostfixHost::LookUp(const std::string& map,
                                                       const std::vector<std::string>& keys) const {
  std::string input;
  for (const std::string& key : keys) {
    input += key + "\n";
  }
  const ProgramEnd end = _RunHere(kPostmap, {"-q", "-", map}, input);
  // A status of 1 without a word means that no key was found.
  if (end.status != 0 && (end.status != 1 || end.errors.find("fatal:") != std::string::npos)) {
    throw Failure(kFailed, "postmap cannot ask " + map + ": " + LastLine(end),
                  "mdomain postfix maps makes the maps");
  }
  return EntriesIn(end.output);
}

std::map<std::string, std::string> PostfixHost::ListEntries(const std::string& map) const {
  const ProgramEnd end = _RunHere(kPostmap, {"-s", map});
  if (end.status != 0) {
    throw Failure(kFailed, "postmap cannot read " + map + ": " + LastLine(end));
  }
  return EntriesIn(end.output);
}

void PostfixHost::Set(const std::vector<std::string>& settings) const {
  std::vector<std::string> arguments = {"-e"};
  arguments.insert(arguments.end(), settings.begin(), settings.end());
  const ProgramEnd end = _RunHere(kPostconf, arguments);
  if (end.status != 0) {
    throw Failure(kFailed, "postconf could not change main.cf: " + LastLine(end));
  }
}

bool PostfixHost::IsRunning() const {
  return _RunHere(kPostfix, {"status"}).status == 0;
}

void PostfixHost::Reload() const {
  const ProgramEnd end = _RunHere(kPostfix, {"reload"});
  if (end.status != 0) {
    throw Failure(kFailed, "main.cf is changed, but Postfix does not reload: " + LastLine(end));
  }
}

ProgramEnd PostfixHost::_RunHere(const std::string& program, std::vector<std::string> arguments,
                                 const std::string& input) const {
  if (!folder_.empty()) {
    arguments.insert(arguments.begin(), {"-c", folder_});
  }
  return RunHostProgram(program, arguments, input);
}

std::map<std::string, std::string> PostfixHost::_ReadSettings(
    const std::vector<std::string>& options) const {
  const ProgramEnd end = _RunHere(kPostconf, options);
  if (end.status != 0) {
    throw Failure(kFailed, "postconf fails: " + LastLine(end));
  }
  std::map<std::string, std::string> settings;
  std::istringstream lines(end.output);
  for (std::string line; std::getline(lines, line);) {
    AddSetting(line, settings);
  }
  return settings;
}

}  // namespace mdomain
