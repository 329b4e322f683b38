// mdomain postfix configure: the lines of main.cf that make Postfix ask the maps.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "lib-domain/base/paths.h"
#include "lib-domain/sync/compiled_maps.h"
#include "platform/include/files.h"
#include "platform/include/host_settings.h"
#include "tools/mdomain/bcc_maps.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/postfix.h"
#include "tools/mdomain/postfix_obstacles.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using MDOMAIN::UTILS::MailTarget;
using MDOMAIN::UTILS::PostfixContent;

struct Wanted {
  std::string name;
  std::string value;
  std::string reason;
};

// What stands in the setting, and `map` behind it, or in the place of a map of that file.
std::string WithMap(const std::string& value, const std::string& map) {
  const std::string path = map.substr(map.find(':'));
  std::vector<std::string> parts;
  bool is_there = false;
  for (const std::string& part : SplitSetting(value)) {
    const bool is_ours = part.size() >= path.size() &&
                         part.compare(part.size() - path.size(), path.size(), path) == 0;
    if (!is_ours || !is_there) {
      parts.push_back(is_ours ? map : part);
    }
    is_there = is_there || is_ours;
  }
  if (!is_there) {
    parts.push_back(map);
  }
  return JoinSetting(parts);
}

// By default the maps of addresses tell the domains too: those of others go on doing so.
std::string AliasDomains(const PostfixHost& host, const std::string& map) {
  const bool has_others = !host.Value("virtual_alias_maps").empty();
  const bool is_default = !host.IsInMainCf("virtual_alias_domains");
  return WithMap(is_default && !has_others ? "" : host.Setting("virtual_alias_domains"), map);
}

// The line of a table in main.cf that names the domain of LMTP is replaced, others stay.
std::string Transports(const PostfixHost& host, const std::string& lmtp) {
  const std::string domain = std::string(MDOMAIN::UTILS::kLmtpDomain) + " =";
  const std::string table = "inline:{ { " + domain + " lmtp:" + lmtp + " } }";
  std::vector<std::string> parts;
  for (const std::string& part : SplitSetting(host.Setting("transport_maps"))) {
    if (part.rfind("inline:", 0) != 0 || part.find(" " + domain) == std::string::npos) {
      parts.push_back(part);
    }
  }
  parts.push_back(table);
  return JoinSetting(parts);
}

std::string WithPart(const std::string& value, const std::string& added) {
  std::vector<std::string> parts = SplitSetting(value);
  for (const std::string& part : parts) {
    if (part == added) {
      return value;
    }
  }
  parts.push_back(added);
  return JoinSetting(parts);
}

void AddBccMaps(const PostfixHost& host, std::vector<Wanted>& wanted) {
  for (const std::string& line : BccMapLines()) {
    const size_t equals = line.find(" = ");
    const std::string name = line.substr(0, equals);
    wanted.push_back({name, WithMap(host.Setting(name), line.substr(equals + 3)),
                      "Blind copies, as the rules of mdomain bcc ask for"});
  }
}

// Of one address. Postfix puts off for ever what goes to more than its limit.
size_t MostReceivers(const PostfixContent& content) {
  size_t most = 0;
  for (const auto& entry : content.addresses) {
    const std::string& receivers = entry.second;
    most = std::max(most,
                    1 + static_cast<size_t>(std::count(receivers.begin(), receivers.end(), ',')));
  }
  return most;
}

std::vector<Wanted> ListWanted(const PostfixHost& host, const PostfixContent& content,
                               const std::string& lmtp, bool takes_utf8,
                               const std::string& milter) {
  const std::string type = MapTypeFor(host).empty() ? "lmdb:" : MapTypeFor(host) + ":";
  const std::string domains = type + MDOMAIN::PATHS::PostfixDomains();
  const std::string addresses = type + MDOMAIN::PATHS::PostfixAddresses();
  std::vector<Wanted> wanted = {
      {"virtual_alias_domains", AliasDomains(host, domains),
       "The domains that mail is taken for; an address there that nobody has is refused"},
      {"virtual_alias_maps",
       WithMap(host.IsInMainCf("virtual_alias_maps") ? host.Setting("virtual_alias_maps") : "",
               addresses),
       "Whose mailbox an address is"},
  };
  if (host.Value("smtputf8_enable") != "yes") {
    wanted.push_back({"smtputf8_enable", "yes", "Addresses beyond ASCII"});
  }
  // Postfix would take it, and only then find that it cannot be delivered.
  if (!takes_utf8 && !IsUtf8Discarded(host)) {
    wanted.push_back({"smtpd_discard_ehlo_keywords",
                      WithPart(host.Setting("smtpd_discard_ehlo_keywords"), "smtputf8"),
                      "Mail that the server behind LMTP does not take is refused, and does not "
                      "bounce"});
  }
  // Also where Postfix delivers now: another account source or [delivery] must not make mail
  // bounce.
  wanted.push_back({"transport_maps", Transports(host, lmtp),
                    "How the mail of accounts reaches a server that keeps the mailboxes"});
  const size_t most = MostReceivers(content);
  if (most > std::strtoul(host.Value("virtual_alias_expansion_limit").c_str(), nullptr, 10)) {
    wanted.push_back({"virtual_alias_expansion_limit", std::to_string(2 * most),
                      "An address that goes to " + std::to_string(most)});
  }
  AddBccMaps(host, wanted);
  if (!milter.empty()) {
    wanted.push_back({"smtpd_milters", WithPart(host.Setting("smtpd_milters"), milter),
                      "The filter that appends disclaimers"});
  }
  return wanted;
}

std::vector<Wanted> ListMissing(const PostfixHost& host, const std::vector<Wanted>& wanted) {
  std::vector<Wanted> missing;
  for (const Wanted& setting : wanted) {
    if (host.Setting(setting.name) != setting.value || !host.IsInMainCf(setting.name)) {
      missing.push_back(setting);
    }
  }
  return missing;
}

Json::Value JsonSettings(const std::vector<Wanted>& settings) {
  Json::Value list(Json::arrayValue);
  for (const Wanted& setting : settings) {
    Json::Value record;
    record["name"] = setting.name;
    record["value"] = setting.value;
    record["reason"] = setting.reason;
    list.append(record);
  }
  return list;
}

void Print(Call& call, const std::vector<Wanted>& wanted, const std::vector<std::string>& obstacles,
           const std::vector<std::string>& cautions) {
  if (call.out().json()) {
    Json::Value record;
    record["settings"] = JsonSettings(wanted);
    record["obstacles"] = JsonTexts(obstacles);
    record["cautions"] = JsonTexts(cautions);
    call.out().Record(record, {});
    return;
  }
  for (const Wanted& setting : wanted) {
    call.out().Raw(Printable("# " + setting.reason) + "\n" +
                   Printable(setting.name + " = " + setting.value) + "\n");
  }
}

// Beside main.cf, under a name that nothing has. Gives the name.
std::string KeepMainCf(const std::string& main_cf) {
  char time_text[32] = "";
  const std::time_t now = std::time(nullptr);
  std::strftime(time_text, sizeof(time_text), "%Y%m%d-%H%M%S", std::localtime(&now));
  std::string copy = main_cf + ".before-" + time_text;
  for (int number = 2; postara::sdk::Exist(copy); ++number) {
    copy = main_cf + ".before-" + time_text + "-" + std::to_string(number);
  }
  std::error_code error;
  const auto mode = std::filesystem::status(main_cf, error).permissions();
  std::string bytes;
  if (error || korvmailserver::ReadFile(main_cf, bytes) != 0 ||
      korvmailserver::ReplaceFile(copy, bytes, static_cast<mode_t>(mode)) != 0) {
    throw Failure(kFailed, main_cf + " cannot be copied to " + copy + ": nothing was changed");
  }
  return copy;
}

void Apply(Call& call, const PostfixHost& host, const std::vector<Wanted>& wanted) {
  const std::vector<Wanted> missing = ListMissing(host, wanted);
  Json::Value record;
  record["changed"] = JsonSettings(missing);
  record["copy"] = "";
  record["reloaded"] = false;
  if (missing.empty()) {
    call.out().Done(record, "main.cf has all of it: nothing to do");
    return;
  }
  const std::string copy = KeepMainCf(host.MainCf());
  std::vector<std::string> settings;
  std::vector<std::string> names;
  for (const Wanted& setting : missing) {
    settings.push_back(setting.name + "=" + setting.value);
    names.push_back(setting.name);
  }
  host.Set(settings);
  const bool is_running = host.IsRunning();
  if (is_running) {
    host.Reload();
  }
  record["copy"] = copy;
  record["reloaded"] = is_running;
  call.out().Done(record, "set " + FirstOf(names) + "; before it main.cf was " + copy +
                              (is_running ? ", and Postfix has reloaded"
                                          : "; Postfix does not run: postfix start"));
}

// Without LMDB.
void CompileWhereWanted(const std::string& type) {
  const bool is_compiled = !type.empty() && type != "lmdb";
  if (is_compiled &&
      (!MDOMAIN::UTILS::WantCompiledMaps(type) || !MDOMAIN::UTILS::CompilePostfixMaps())) {
    throw Failure(kFailed, "the maps of type " + type + " could not be made");
  }
}

// Those of another type, once LMDB is there and main.cf names it.
void RemoveUnusedMaps(const Call& call, const PostfixHost& host) {
  const std::string compiled = MDOMAIN::UTILS::NameOfMap(MDOMAIN::PATHS::PostfixAddresses());
  const bool is_unused = call.Has("--apply") || host.ListNaming(compiled).empty();
  if (host.HasMapType("lmdb") && is_unused && !MDOMAIN::UTILS::RemoveCompiledMaps()) {
    throw Failure(kFailed, "maps for Postfix that nothing names any more could not be removed");
  }
}

void RequireMilter(const std::string& milter) {
  const bool is_inet = milter.rfind("inet:", 0) == 0 && milter.rfind(':') > 5;
  if (!milter.empty() && !is_inet && milter.rfind("unix:", 0) != 0) {
    throw Failure(kUsage, "--milter is \"unix:PATH\" or \"inet:HOST:PORT\"");
  }
}

void Configure(Call& call) {
  const bool applies = call.Has("--apply") && !call.Has("--dry-run");
  if (call.Has("--apply") && call.Has("--print")) {
    throw Failure(kUsage, "--print only shows, --apply sets: give one of them");
  }
  if (applies) {
    RequireOwnConfig(call);
  }
  const std::string milter = call.Text("--milter");
  RequireMilter(milter);
  const PostfixHost host(call.Text("--config"));
  korvmailserver::HostSettings settings;
  std::string error;
  MailTarget target;
  MDOMAIN::UTILS::OwnerRegistryContent owners;
  PostfixContent content;
  if (!korvmailserver::ReadHostSettings(settings, error) || !target.Read() ||
      !MDOMAIN::UTILS::CollectOwners(owners) ||
      !MDOMAIN::UTILS::CollectPostfixMaps(owners, content)) {
    throw Failure(kFailed, "the addresses could not be read");
  }
  const std::string& lmtp = settings.delivery.lmtp;
  const bool takes_utf8 = TakesUtf8(host, target, lmtp);
  const bool has_milter = !milter.empty() || !host.Value("smtpd_milters").empty();
  const std::vector<std::string> obstacles = ListObstacles(host, content, target, milter);
  const std::vector<std::string> cautions =
      ListCautions(host, content, target, lmtp, takes_utf8, has_milter);
  for (const std::string& caution : cautions) {
    Warn(caution);
  }
  const auto list = [&] { return ListWanted(host, content, lmtp, takes_utf8, milter); };
  if (call.Has("--dry-run")) {
    Print(call, list(), obstacles, cautions);
  } else if (obstacles.empty() || !applies) {
    MakePostfixMaps();  // a map that main.cf names and that is missing stops all mail
    CompileWhereWanted(MapTypeFor(host));
    const std::vector<Wanted> wanted = list();
    applies ? Apply(call, host, wanted) : Print(call, wanted, obstacles, cautions);
    RemoveUnusedMaps(call, host);
  }
  if (!obstacles.empty()) {
    call.out().Flush();
    throw Failure(kRefused, "main.cf was not changed: " + FirstOf(obstacles, "; "));
  }
}

const Register kConfigure({
    "postfix",
    "Postfix, which receives the mail of the domains",
    {
        {"configure",
         "Print or set the lines of main.cf that use the maps",
         "Makes the maps first. What stands in a setting stays, ours is added. A setting of the "
         "host that stands against it is named with what to do, and ends the command with 3; "
         "--apply changes nothing then. Can be repeated.",
         Effect::kChangesHere,
         {
             Flag("--print", "Print the lines; so without --apply"),
             Flag("--dry-run", "Print the lines, with --apply too, and leave the maps alone"),
             Flag("--apply",
                  "Set them with postconf, after a copy of main.cf beside it, and reload Postfix "
                  "where it runs"),
             Option("--milter", "SOCKET",
                    "The filter for disclaimers, as smtpd_milters names it: unix:PATH or "
                    "inet:HOST:PORT"),
             PostfixConfigOption(),
         },
         Configure,
         ShowsItself()},
    },
});

}  // namespace
}  // namespace mdomain
