#include "lib-domain/sync/compiled_maps.h"

#include <sstream>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/postmap.h"
#include "lib-domain/base/sentence.h"
#include "platform/include/files.h"

namespace MDOMAIN::UTILS {

namespace {

using BASE::MapFailure;
using korvmailserver::MapEntries;
using korvmailserver::PostfixMap;

constexpr mode_t kMode = 0644;  // as the LMDB files
constexpr const char* kNever = "-";

// A domain without its addresses refuses mail, so they come first.
struct Standing {
  std::string type;
  std::string addresses = kNever;  // the state of the LMDB file that was compiled
  std::string domains = kNever;
};

std::string StandingPath() {
  return PATHS::TargetEtcDir() + "postfix_compiled";
}

Standing ReadStanding() {
  Standing standing;
  std::string bytes;
  if (postara::sdk::Exist(StandingPath()) && korvmailserver::ReadFile(StandingPath(), bytes) != 0) {
    throw MapFailure(StandingPath() + " cannot be read");
  }
  std::istringstream words(bytes);
  words >> standing.type >> standing.addresses >> standing.domains;
  return standing;
}

void WriteStanding(const Standing& standing, const std::string& beside) {
  BASE::WriteMapText(beside,
                     standing.type + " " + standing.addresses + " " + standing.domains + "\n");
  BASE::InstallFile(beside, StandingPath(), kMode);
}

// The empty string where there is no LMDB file, or none that can be read: then there is nothing to
// compile until it was made anew.
std::string StateOf(const std::string& path) {
  std::string state;
  std::string error;
  return PostfixMap(path).GetState(state, error) ? state : "";
}

bool IsBehind(const std::string& type, const std::string& path, const std::string& compiled) {
  const std::string state = StateOf(path);
  return !state.empty() && (state != compiled || !postara::sdk::Exist(path + BASE::Ending(type)));
}

bool IsBehind(const Standing& standing) {
  return !standing.type.empty() &&
         (IsBehind(standing.type, PATHS::PostfixAddresses(), standing.addresses) ||
          IsBehind(standing.type, PATHS::PostfixDomains(), standing.domains));
}

// Postfix takes a line with "#" before everything else for a comment, and in quotes for another
// key.
constexpr char kComment = '#';

std::string TextOf(const MapEntries& entries) {
  std::string text;
  for (const auto& [key, value] : entries) {
    if (key.front() != kComment) {
      text.append(key).append("\t").append(value).append("\n");
    }
  }
  return text;
}

void CompileOne(const std::string& type, const std::string& path, const std::string& beside,
                std::string& compiled) {
  if (!IsBehind(type, path, compiled)) {
    return;
  }
  // Read before the entries: of what changes between, the next run finds that it is behind.
  const std::string state = StateOf(path);
  MapEntries entries;
  std::string error;
  if (!PostfixMap(path).GetAll(entries, error)) {
    throw MapFailure(error);
  }
  BASE::WriteMapText(beside, TextOf(entries));
  BASE::Compile(type, beside);
  BASE::InstallFile(beside + BASE::Ending(type), path + BASE::Ending(type), kMode);
  compiled = state;
}

void Compile() {
  if (!IsBehind(ReadStanding())) {
    return;
  }
  const BASE::MapFolderLock lock(PATHS::TargetEtcDir());
  Standing standing = ReadStanding();
  const BASE::MapWorkFolder work(PATHS::TargetEtcDir());
  CompileOne(standing.type, PATHS::PostfixAddresses(), work.File("addresses"), standing.addresses);
  CompileOne(standing.type, PATHS::PostfixDomains(), work.File("domains"), standing.domains);
  WriteStanding(standing, work.File("standing"));
}

template <typename Work>
bool Try(const char* what, const Work& work) {
  try {
    work();
    return true;
  } catch (const MapFailure& failure) {
    LOG_ERROR("%s: %s", what, failure.what());
    return false;
  }
}

void Remove() {
  const std::string type = ReadStanding().type;
  if (type.empty()) {
    return;
  }
  const BASE::MapFolderLock lock(PATHS::TargetEtcDir());
  for (const std::string& path : {StandingPath(), PATHS::PostfixDomains() + BASE::Ending(type),
                                  PATHS::PostfixAddresses() + BASE::Ending(type)}) {
    if (postara::sdk::Exist(path) && postara::sdk::Unlink(path) < 0) {
      throw MapFailure(path + " stays");
    }
  }
}

}  // namespace

std::string CompiledMapType() {
  Standing standing;
  Try("It cannot be told which maps Postfix reads", [&standing] { standing = ReadStanding(); });
  return standing.type;
}

std::string NameOfMap(const std::string& path) {
  const std::string type = CompiledMapType();
  return (type.empty() ? "lmdb" : type) + ":" + path;
}

bool WantCompiledMaps(const std::string& type) {
  return Try("Failed to note the type of the maps for Postfix", [&type] {
    if (ReadStanding().type != type) {
      Remove();
      const BASE::MapFolderLock lock(PATHS::TargetEtcDir());
      WriteStanding({type}, BASE::MapWorkFolder(PATHS::TargetEtcDir()).File("standing"));
    }
  });
}

bool RemoveCompiledMaps() {
  return Try("Failed to remove maps for Postfix", &Remove);
}

std::vector<std::string> ListUncompilable(const MapEntries& addresses) {
  std::vector<std::string> found;
  for (auto entry = addresses.lower_bound(std::string(1, kComment));
       entry != addresses.end() && entry->first.front() == kComment; ++entry) {
    found.push_back(entry->first);
  }
  return found;
}

std::string TellUncompilable(const std::string& type, const MapEntries& addresses) {
  const bool is_compiled = !type.empty() && type != "lmdb";
  const std::vector<std::string> uncompiled =
      is_compiled ? ListUncompilable(addresses) : std::vector<std::string>();
  return uncompiled.empty() ? ""
                            : "no mail comes to " + BASE::FirstOf(uncompiled) + ": a map of type " +
                                  type + " cannot hold an address that begins with #";
}

bool AreCompiledMapsBehind(bool& are_behind) {
  return Try("It cannot be told whether the maps for Postfix are in line",
             [&are_behind] { are_behind = IsBehind(ReadStanding()); });
}

bool CompilePostfixMaps() {
  return Try("Failed to compile the maps for Postfix", &Compile);
}

}  // namespace MDOMAIN::UTILS
