// mdomain postfix: the maps of domains and addresses that Postfix reads.
#include "tools/mdomain/postfix.h"

#include <cstdlib>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/postmap.h"
#include "lib-domain/sync/compiled_maps.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/pulled_addresses.h"
#include "platform/include/files.h"
#include "platform/include/postfix_map.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {

using korvmailserver::MapEntries;
using korvmailserver::PostfixMap;

namespace {

// A map that main.cf names and that is missing stops all mail.
void RequireUnused(const Call& call, const std::string& map) {
  const bool is_told = call.Has("--config");
  if (!is_told && (getenv("MDOMAIN_ROOT") != nullptr || !KLIBCFileExist("/usr/sbin/postconf"))) {
    return;
  }
  const PostfixHost host(is_told ? call.Text("--config") : "");
  const std::vector<std::string> names = host.ListNaming(map);
  if (!names.empty()) {
    throw Failure(kRefused, host.MainCf() + " names " + map + " in " + names.front() +
                                ": take it out and reload Postfix first");
  }
}

// First what makes them follow: what a killed run leaves is files that the next one removes.
void Remove(Call& call) {
  const std::string maps[] = {MDOMAIN::PATHS::PostfixDomains(), MDOMAIN::PATHS::PostfixAddresses()};
  for (const std::string& map : maps) {
    RequireUnused(call, map);
  }
  if (!IsMemberElseManager() && !MDOMAIN::UTILS::ForgetPostfixMaps()) {
    throw Failure(kFailed, "the maps for Postfix still follow every change");
  }
  // Where a pull made the maps, this has the next one make them again.
  const std::string mark = MDOMAIN::PATHS::PulledMapsMark();
  if (postara::sdk::Exist(mark) && postara::sdk::Unlink(mark) < 0) {
    throw Failure(kFailed, mark + " could not be removed");
  }
  if (!MDOMAIN::UTILS::RemoveCompiledMaps()) {
    throw Failure(kFailed, "the compiled maps for Postfix could not be removed");
  }
  Json::Value record;
  record["removed"] = Json::Value(Json::arrayValue);
  for (const std::string& map : maps) {
    const std::string file = PostfixMap(map).File();
    if (!KLIBCFileExist(file.c_str())) {
      continue;
    }
    if (postara::sdk::Unlink(file) < 0) {
      throw Failure(kFailed, file + " could not be removed");
    }
    record["removed"].append(file);
  }
  call.out().Done(record, "there are no maps for Postfix any more");
}

void Maps(Call& call) {
  if (call.Has("--remove")) {
    Remove(call);
    return;
  }
  MakePostfixMaps();
  MapEntries addresses;
  std::string error;
  const std::string type = MDOMAIN::UTILS::CompiledMapType();
  if (!type.empty() && PostfixMap(MDOMAIN::PATHS::PostfixAddresses()).GetAll(addresses, error)) {
    WarnOfUncompiled(type, addresses);
  }
  Json::Value record;
  record["domains"] = MDOMAIN::UTILS::NameOfMap(MDOMAIN::PATHS::PostfixDomains());
  record["addresses"] = MDOMAIN::UTILS::NameOfMap(MDOMAIN::PATHS::PostfixAddresses());
  call.out().Done(record, "the maps for Postfix follow every change now");
}

const Register kPostfix({
    "postfix",
    "Postfix, which receives the mail of the domains",
    {
        {"maps",
         "Make the maps of domains and addresses, or remove them",
         "From then on they follow every change by themselves, and on a machine that pulls every "
         "pull. Postfix sees a change at once, and always a whole map. Maps that main.cf names are "
         "not removed.",
         Effect::kChangesHere,
         {
             Flag("--remove", "Remove them, and what makes them follow, instead"),
             PostfixConfigOption(),
         },
         Maps,
         "There is no --dry-run: the maps follow from the model, and mdomain postfix check tells "
         "where "
         "they differ."},
    },
});

}  // namespace

void RequireOwnConfig(const Call& call) {
  if (getenv("MDOMAIN_ROOT") != nullptr && !call.Has("--config")) {
    throw Failure(kUsage,
                  "with --root this wants --config: the machine's own files stay as they "
                  "are");
  }
}

void MakePostfixMaps() {
  if (IsMemberElseManager() ? !MDOMAIN::UTILS::MakePulledPostfixMaps()
                            : !MDOMAIN::UTILS::BuildPostfixMaps()) {
    throw Failure(kFailed, "the maps for Postfix could not be made; those of before are in place");
  }
}

// What main.cf may name already stays while Postfix knows it.
std::string MapTypeFor(const PostfixHost& host) {
  const std::string compiled = MDOMAIN::UTILS::CompiledMapType();
  if (host.HasMapType("lmdb")) {
    return "lmdb";
  }
  return host.HasMapType(compiled)
             ? compiled
             : MDOMAIN::BASE::ChooseMapType(host.Value("default_database_type"), host.MapTypes());
}

void Warn(const std::string& text) {
  Note("warning: " + text);
}

void WarnOfUncompiled(const std::string& type, const MapEntries& addresses) {
  const std::string text = MDOMAIN::UTILS::TellUncompilable(type, addresses);
  if (!text.empty()) {
    Warn(text + " (" + MDOMAIN::UTILS::kUncompilableCure + ")");
  }
}

}  // namespace mdomain
