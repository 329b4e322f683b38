#include "tools/mdomain/bcc_maps.h"

#include <json/reader.h>

#include <algorithm>
#include <filesystem>
#include <list>
#include <sstream>

#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/control/policy_hooks.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/node_publication.h"
#include "platform/include/files.h"
#include "tools/mdomain/model.h"

namespace mdomain {
namespace {

namespace fs = std::filesystem;

std::string ReportPath() {
  return MDOMAIN::PATHS::TargetEtcDir() + MDOMAIN::CONTROL::INTERNAL::kMapReport;
}

// What the compiler wrote about its last run.
Json::Value ReadReport() {
  const std::string path = ReportPath();
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

bool HasMapCompiler() {
  return KLIBCFileExist(MDOMAIN::PATHS::BccMapCompiler().c_str());
}

bool MapsFollowFrom(const std::string& key) {
  return key == MDOMAIN::UTILS::kDatabaseKey || key == MDOMAIN::CONTROL::INTERNAL::kBccFileKey ||
         key == "alias_db";
}

bool AreMapsOld() {
  std::string model;
  MDOMAIN::UTILS::GetModelPathWith("", "", model);
  const std::string sources[] = {model, MDOMAIN::PATHS::SettingsDb(), MDOMAIN::PATHS::AliasDb()};
  std::error_code error;
  const auto made = fs::last_write_time(ReportPath(), error);  // the oldest time without a report
  return std::any_of(std::begin(sources), std::end(sources), [&](const std::string& source) {
    std::error_code missing;
    const auto written = fs::last_write_time(source, missing);
    return !missing && written > made;
  });
}

void CompileMaps() {
  RequireOwnSettings();
  const std::string program = MDOMAIN::PATHS::BccMapCompiler();
  if (!HasMapCompiler()) {
    throw Failure(kFailed, "there is no map compiler at " + program + ": link korv_bcc_map there");
  }
  BCC* bcc = BCC::getInstance();
  const int status = bcc == nullptr ? -1 : bcc->GenerateBccMap();
  if (status != 0) {
    throw Failure(kFailed, program + " failed, the old maps stay");
  }
}

std::vector<std::string> BccMapLines() {
  std::list<BccInfo> rules;
  BCC* bcc = BCC::getInstance();
  if (bcc == nullptr || bcc->getSystemAllBCCList(rules) != 0) {
    throw Failure(kFailed, "the rules of blind copies could not be read");
  }
  std::vector<std::string> lines;
  if (!rules.empty() || KLIBCFileExist(ReportPath().c_str())) {
    CompileMaps();
    const Json::Value report = ReadReport();
    for (const Json::Value& map : report["maps"]) {
      lines.push_back(map["main_cf"].asString());
    }
  }
  return lines;
}

void MakeBccMaps(Call& call) {
  CompileMaps();
  const Json::Value report = ReadReport();
  if (call.out().json()) {
    call.out().Record(report, {});
  } else {
    call.out().Texts(Sentences(report));
  }
}

}  // namespace mdomain
