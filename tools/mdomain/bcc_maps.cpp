#include "tools/mdomain/bcc_maps.h"

#include <json/reader.h>

#include <sstream>

#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"
#include "tools/mdomain/model.h"

namespace mdomain {
namespace {

// What the compiler wrote about its last run.
Json::Value ReadReport() {
  const std::string path = MDOMAIN::PATHS::TargetEtcDir() + "bcc_maps.json";
  std::string bytes;
  Json::Value report;
  Json::CharReaderBuilder builder;
  std::string error;
  std::istringstream in(korvmailserver::ReadFile(path, bytes) == 0 ? bytes : "");
  if (!Json::parseFromStream(builder, in, &report, &error) || !report["maps"].isArray()) {
    throw Failure(kFailed, path + " does not tell what was made");
  }
  return report;
}

std::vector<std::string> Sentences(const Json::Value& report) {
  std::vector<std::string> lines;
  for (const Json::Value& map : report["maps"]) {
    lines.push_back(map["kind"].asString() + " map with " + map["keys"].asString() +
                    " addresses: " + map["path"].asString());
  }
  for (const Json::Value& left : report["left_out"]) {
    const std::string key = left["key"].asString();
    lines.push_back("left out of the " + left["map"].asString() +
                    " map: " + left["rule"].asString() + " to " + left["destination"].asString() +
                    (key.empty() ? "" : " for " + key) + ": " + left["reason"].asString());
  }
  for (const Json::Value& unknown : report["unknown_destinations"]) {
    lines.push_back("in the " + unknown["map"].asString() + " map: " + unknown["rule"].asString() +
                    " goes to " + unknown["destination"].asString() + ", which nobody has");
  }
  lines.emplace_back("The maps are there, so main.cf may name them. With these lines in it, run");
  lines.emplace_back("postfix reload once; Postfix sees later runs by itself.");
  for (const Json::Value& map : report["maps"]) {
    lines.push_back("  " + map["main_cf"].asString());
  }
  return lines;
}

}  // namespace

void MakeBccMaps(Call& call) {
  RequireOwnSettings();
  const std::string program = MDOMAIN::PATHS::BccMapCompiler();
  if (!KLIBCFileExist(program.c_str())) {
    throw Failure(kFailed, "there is no map compiler at " + program + ": link korv_bcc_map there");
  }
  BCC* bcc = BCC::getInstance();
  const int status = bcc == nullptr ? -1 : bcc->GenerateBccMap();
  if (status != 0) {
    throw Failure(kFailed, program + " failed, the old maps stay");
  }
  const Json::Value report = ReadReport();
  if (call.out().json()) {
    call.out().Record(report, {});
  } else {
    call.out().Texts(Sentences(report));
  }
}

}  // namespace mdomain
