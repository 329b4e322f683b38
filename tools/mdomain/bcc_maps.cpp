#include "tools/mdomain/bcc_maps.h"

#include <json/reader.h>

#include <sstream>

#include "lib-domain/api/bcc.h"
#include "lib-domain/base/paths.h"
#include "platform/include/files.h"

namespace mdomain {
namespace {

// What the compiler says about its last run.
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

std::string Sentences(const Json::Value& report) {
  std::string text;
  std::string settings;
  for (const Json::Value& map : report["maps"]) {
    text += map["kind"].asString() + " map with " + map["keys"].asString() +
            " addresses: " + map["path"].asString() + "\n";
    settings += "  " + map["main_cf"].asString() + "\n";
  }
  for (const Json::Value& left : report["left_out"]) {
    text += "left out of the " + left["map"].asString() + " map: " + left["rule"].asString() +
            " to " + left["destination"].asString() + " for " + left["key"].asString() + ": " +
            left["reason"].asString() + "\n";
  }
  return text +
         "The maps are there, so main.cf may name them. Add these lines to it, then run "
         "postfix reload; later runs need no reload:\n" +
         settings.substr(0, settings.size() - 1);
}

}  // namespace

void MakeBccMaps(Call& call) {
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
  call.out().Done(report, Sentences(report));
}

}  // namespace mdomain
