// The programs, the timer and the part of this host; an undo that has not ended.
#include "lib-domain/insight/doctor.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "lib-domain/base/paths.h"
#include "lib-domain/history/history.h"
#include "lib-domain/sync/compiled_maps.h"
#include "platform/include/account.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/nodes.h"
#include "platform/include/root_path.h"

namespace MDOMAIN::INSIGHT::INTERNAL {

namespace {

void RequireProgram(const std::string& path, const std::string& for_what, Findings& findings) {
  if (access(path.c_str(), X_OK) != 0) {
    findings.push_back({"programs", true, path + " is not there: " + for_what, "install it"});
  }
}

void CheckPrograms(Findings& findings) {
  std::string type;
  mailConfGet("account_type", type);
  if (type == "win") {
    RequireProgram("/usr/bin/net", "accounts of the Windows domain cannot be read", findings);
  }
  std::string enabled;
  mailConfGet("mimedefang_enable", enabled);
  if (enabled == "yes") {
    RequireProgram("/usr/bin/perl", "disclaimers cannot be explained", findings);
  }
  if (postara::sdk::Exist(PATHS::TargetEtcDir() + "bcc_maps.json")) {
    RequireProgram("/usr/sbin/postmap", "maps of blind copies cannot be compiled", findings);
  }
  if (!UTILS::CompiledMapType().empty()) {
    RequireProgram("/usr/sbin/postmap", "maps of addresses cannot be compiled", findings);
  }
}

void CheckCompiledMaps(Findings& findings) {
  const std::string type = UTILS::CompiledMapType();
  korvmailserver::MapEntries addresses;
  std::string error;
  const korvmailserver::PostfixMap map(PATHS::PostfixAddresses());
  if (!type.empty() && map.GetAll(addresses, error)) {
    const std::string text = UTILS::TellUncompilable(type, addresses);
    if (!text.empty()) {
      findings.push_back({"uncompiled", false, text, UTILS::kUncompilableCure});
    }
  }
}

// When mdomain refresh last ended well; 0: never since the host was started.
time_t LastRefresh() {
  struct stat info {};
  return stat(PATHS::LastRefresh().c_str(), &info) == 0 ? info.st_mtime : 0;
}

void CheckTimer(Findings& findings) {
  constexpr time_t kDay = 86400;
  const time_t last = LastRefresh();
  if (last == 0 || time(nullptr) - last > kDay) {
    findings.push_back({"timer", false,
                        last == 0
                            ? "no refresh is known to have run since this host was started"
                            : "the last refresh ran " +
                                  std::to_string((time(nullptr) - last) / kDay) + " day(s) ago",
                        "systemctl enable --now mdomain-refresh.timer"});
  }
}

void CheckNode(const korvmailserver::NodeStanding& standing, Findings& findings) {
  if (standing.role == korvmailserver::NodeRole::kUndecided) {
    findings.push_back({"node", true, "nobody has said whether this machine manages the domains",
                        "mdomain node manage, or mdomain node join"});
  }
  if (standing.unpublished_since != 0) {
    findings.push_back(
        {"node", true, "a change here has not reached the other machines", "mdomain publish"});
  }
}

void CheckHistory(Findings& findings) {
  HISTORY::Entry last;
  if (!HISTORY::FindLast(last)) {
    findings.push_back({"history", false, "the history of changes cannot be read",
                        "remove " + PATHS::HistoryDb() + ": nothing depends on it"});
  } else if (last.id != 0 && last.state != "done") {
    findings.push_back(
        {"undo", true, "an undo of this was interrupted: mdomain " + last.command, "mdomain undo"});
  }
}

}  // namespace

void CheckHost(const korvmailserver::NodeStanding* standing, Findings& findings) {
  CheckPrograms(findings);
  CheckCompiledMaps(findings);
  CheckHistory(findings);
  if (standing == nullptr) {
    findings.push_back({"node", true,
                        "what this machine is among those that share a key store cannot be told",
                        "mdomain node status"});
    return;
  }
  if (standing->role != korvmailserver::NodeRole::kMember &&
      standing->role != korvmailserver::NodeRole::kReplaced) {
    CheckTimer(findings);
  }
  CheckNode(*standing, findings);
}

}  // namespace MDOMAIN::INSIGHT::INTERNAL
