// korv_bcc_map: writes the blind-copy maps of both kinds and compiles them for Postfix.
//
// Reads the rules, the published domains, the alias table and the users' aliases. Works in a folder
// of its own beside the maps and replaces them when both new ones are whole; after a failure the
// old ones stay. An empty map is written too: Postfix stops all mail when a map that main.cf names
// is missing. bcc_maps.json tells what was made and which rules could not be written.
#include <json/value.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "lib-domain/api/bcc/map_text.h"
#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/postmap.h"
#include "lib-domain/control/policy_hooks.h"
#include "platform/include/files.h"
#include "platform/include/maillog.h"
#include "platform/include/text.h"

namespace korv_bcc_map {
namespace {

using namespace MDOMAIN::BASE;  // NOLINT(google-build-using-namespace): the names of maps
using MDOMAIN::API::INTERNAL::LeftOut;
using MDOMAIN::API::INTERNAL::MapText;

struct Map {
  int type;
  const char* kind;
  const char* file;
  const char* setting;  // of main.cf
  MapText text;
};

using MDOMAIN::CONTROL::INTERNAL::kMapReport;

std::array<Map, 2> Maps() {
  return {{{BCC_RECIPIENT,
            "recipient",
            MDOMAIN::CONTROL::INTERNAL::kRecipientMap,
            "recipient_bcc_maps",
            {}},
           {BCC_SENDER, "sender", MDOMAIN::CONTROL::INTERNAL::kSenderMap, "sender_bcc_maps", {}}}};
}

std::string TargetFolder() {
  std::string folder = MDOMAIN::PATHS::TargetEtcDir();
  if (KORVFSMkdirP(folder.c_str(), geteuid(), getegid(), 0755) != 0) {
    throw MapFailure(folder + ": " + strerror(errno));
  }
  return folder;
}

void Fill(Map& map) {
  BCC* bcc = BCC::getInstance();
  const auto add = [&map](const BccMapEntry& entry) { map.text.Add(entry); };
  if (bcc == nullptr || bcc->ForEachMapEntry(map.type, true, add) != 0) {
    throw MapFailure(std::string("the rules of the ") + map.kind + " map could not be read");
  }
}

Json::Value LeftOutJson(const Map& map, const LeftOut& left_out) {
  Json::Value value;
  value["map"] = map.kind;
  value["key"] = left_out.key;
  value["rule"] = left_out.rule;
  value["destination"] = left_out.destination;
  value["reason"] = left_out.reason;
  return value;
}

Json::Value Report(const std::array<Map, 2>& maps, const std::string& type,
                   const std::string& folder) {
  Json::Value report;
  report["maps"] = Json::arrayValue;
  report["left_out"] = Json::arrayValue;
  report["unknown_destinations"] = Json::arrayValue;
  for (const Map& map : maps) {
    Json::Value value;
    value["kind"] = map.kind;
    const std::string path = folder + map.file;
    value["path"] = path;
    value["type"] = type;
    value["keys"] = static_cast<Json::UInt64>(map.text.size());
    std::string line = map.setting;
    line.append(" = ").append(type).append(":").append(path);
    value["main_cf"] = line;
    report["maps"].append(value);
    for (const LeftOut& left_out : map.text.left_out()) {
      report["left_out"].append(LeftOutJson(map, left_out));
    }
    for (const auto& [rule, destination] : map.text.unknown_destinations()) {
      Json::Value unknown;
      unknown["map"] = map.kind;
      unknown["rule"] = rule;
      unknown["destination"] = destination;
      report["unknown_destinations"].append(unknown);
    }
  }
  return report;
}

void LogDoubts(const Map& map) {
  for (const LeftOut& left_out : map.text.left_out()) {
    LOG_WARNING("bcc %s map: rule [%s] to [%s] left out of [%s]: %s", map.kind,
                left_out.rule.c_str(), left_out.destination.c_str(), left_out.key.c_str(),
                left_out.reason.c_str());
  }
  for (const auto& [rule, destination] : map.text.unknown_destinations()) {
    LOG_WARNING("bcc %s map: rule [%s] goes to [%s], an address that nobody has", map.kind,
                rule.c_str(), destination.c_str());
  }
}

bool Run() {
  std::array<Map, 2> maps = Maps();
  const std::string folder = TargetFolder();
  const MapFolderLock lock(folder);
  const MapWorkFolder work(folder);
  const std::string type = MapType();
  for (Map& map : maps) {
    Fill(map);
    WriteMapText(work.File(map.file), map.text.text());
    Compile(type, work.File(map.file));
  }
  for (const Map& map : maps) {
    Install(type, work.File(map.file), folder + map.file);
    LogDoubts(map);
  }
  Json::StreamWriterBuilder writer;
  writer["emitUTF8"] = true;
  WriteMapText(work.File(kMapReport), Json::writeString(writer, Report(maps, type, folder)) + "\n");
  InstallFile(work.File(kMapReport), folder + kMapReport);
  return work.Remove();
}

// Shows errors and warnings of the log on standard error too.
void ShowLog() {
  korvmailserver::SetMailLogSink([](int level, const std::string& line) {
    if (level != MDOMAIN::BASE::kLogNotice) {
      std::cerr << korvmailserver::VisibleText(line) << "\n";
    }
    return false;
  });
}

}  // namespace
}  // namespace korv_bcc_map

int main(int argc, char** /*argv*/) {
  if (argc != 1) {
    std::cerr << "usage: korv_bcc_map\n";
    return 2;
  }
  umask(077);
  korv_bcc_map::ShowLog();
  try {
    return korv_bcc_map::Run() ? 0 : 1;
  } catch (const std::exception& error) {
    LOG_ERROR("bcc maps not replaced: %s", error.what());
    return 1;
  }
}
