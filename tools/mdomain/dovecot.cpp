// mdomain dovecot configure: logins by any address, and mail by LMTP.
#include <filesystem>
#include <iostream>

#include "lib-domain/base/paths.h"
#include "lib-domain/sync/follow_addresses.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/node_publication.h"
#include "lib-domain/sync/pulled_addresses.h"
#include "platform/include/files.h"
#include "platform/include/host_settings.h"
#include "tools/mdomain/dovecot_files.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/postfix.h"
#include "tools/mdomain/postfix_host.h"
#include "tools/mdomain/socket_access.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDoveconf = "/usr/bin/doveconf";
constexpr const char* kDoveadm = "/usr/bin/doveadm";
constexpr const char* kSqliteDriver = "/usr/lib/dovecot/modules/auth/libdriver_sqlite.so";
constexpr mode_t kFileMode = 0644;

std::string SettingOf(const std::string& main_file, const std::string& name) {
  const korvmailserver::ProgramEnd end = RunHostProgram(kDoveconf, {"-c", main_file, "-h", name});
  if (end.status != 0) {
    throw Failure(kFailed, "doveconf fails: " + LastLine(end));
  }
  return end.output;
}

korvmailserver::DeliverySettings Delivery() {
  korvmailserver::HostSettings settings;
  std::string error;
  if (!korvmailserver::ReadHostSettings(settings, error)) {
    throw Failure(kFailed, error);
  }
  return settings.delivery;
}

// Postfix's names of sockets, as Dovecot names them; nothing for one of another host.
LmtpSocket SocketFor(const std::string& lmtp, const std::string& postfix_folder) {
  const PostfixHost postfix(postfix_folder);
  if (lmtp.rfind("unix:", 0) == 0) {
    const std::string place = lmtp.substr(lmtp.find(':') + 1);
    const fs::path path = fs::path(postfix.Value("queue_directory")) / place;
    return {path, postfix.Value("mail_owner"), "", ""};
  }
  LmtpSocket here;
  here.port = kLmtpPort;
  SplitInetSocket(lmtp, here.host, here.port);
  bool is_known = false;
  if (IsHostHere(here.host, is_known)) {
    return here;
  }
  if (!is_known) {
    throw Failure(kRefused, "the host of lmtp = " + lmtp + " in " +
                                korvmailserver::HostSettingsPath() + " is not known");
  }
  return LmtpSocket();
}

void RequireDovecot(const std::string& main_file, bool is_lmtp) {
  if (!KLIBCFileExist(kSqliteDriver)) {
    throw Failure(kRefused, "Dovecot cannot read SQLite databases: apt-get install dovecot-sqlite");
  }
  if (is_lmtp && SettingOf(main_file, "protocols").find("lmtp") == std::string::npos) {
    throw Failure(kRefused,
                  "Dovecot does not serve LMTP: apt-get install dovecot-lmtpd, or put lmtp into "
                  "its setting protocols");
  }
}

// Where Dovecot is to look owners up. A registry that is pulled is another file after each change,
// so a machine that pulls, or manages and may come to pull, has one of its own, and keeps it.
std::string RegistryHere() {
  return IsAlone() && !MDOMAIN::UTILS::HasLogins() ? MDOMAIN::PATHS::EmailOwnerDb()
                                                   : MDOMAIN::PATHS::LoginDb();
}

// The registry is there, and follows.
void MakeRegistry(const std::string& registry) {
  const bool is_own = registry == MDOMAIN::PATHS::LoginDb();
  MDOMAIN::UTILS::OwnerCounts counts;
  const bool is_made = IsMemberElseManager() ? MDOMAIN::UTILS::MakePulledLogins()
                                             : MDOMAIN::UTILS::BuildOwners(counts) &&
                                                   (!is_own || MDOMAIN::UTILS::BuildLogins()) &&
                                                   MDOMAIN::UTILS::PublishNodeFiles();
  if (!is_made) {
    throw Failure(kFailed, "the registry of address owners could not be made");
  }
}

// Replaces what differs. `before` gets what was there, empty texts for nothing.
void Write(const std::vector<DovecotFile>& files, std::vector<DovecotFile>& before) {
  for (const DovecotFile& file : files) {
    std::string bytes;
    const bool is_there = korvmailserver::ReadFile(file.path, bytes) == 0;
    if (is_there && !IsDovecotFileOfOurs(bytes)) {
      throw Failure(kRefused, file.path + " is somebody else's file: move it away");
    }
    if (bytes == file.text) {
      continue;
    }
    if (korvmailserver::ReplaceFile(file.path, file.text, kFileMode) != 0) {
      throw Failure(kFailed, file.path + " could not be written");
    }
    before.push_back({file.path, bytes});
  }
}

void TakeBack(const std::vector<DovecotFile>& before) {
  for (const DovecotFile& file : before) {
    if (file.text.empty()) {
      postara::sdk::Unlink(file.path);
    } else {
      korvmailserver::ReplaceFile(file.path, file.text, kFileMode);
    }
  }
}

void Apply(Call& call, const std::string& main_file, const std::vector<DovecotFile>& files) {
  std::vector<DovecotFile> before;
  try {
    Write(files, before);
    SettingOf(main_file, "passdb");  // Dovecot can read them
  } catch (const Failure&) {
    TakeBack(before);
    throw;
  }
  Json::Value record;
  std::vector<std::string> paths;
  paths.reserve(before.size());
  for (const DovecotFile& file : before) {
    paths.push_back(file.path);
  }
  const bool is_reloaded =
      !paths.empty() && RunHostProgram(kDoveadm, {"-c", main_file, "reload"}).status == 0;
  record["written"] = JsonTexts(paths);
  record["reloaded"] = is_reloaded;
  call.out().Done(record, paths.empty() ? "Dovecot's files have all of it: nothing to do"
                                        : "written: " + FirstOf(paths) +
                                              (is_reloaded ? "; Dovecot has reloaded"
                                                           : "; Dovecot does not run"));
}

void Print(Call& call, const std::vector<DovecotFile>& files) {
  Json::Value list(Json::arrayValue);
  std::string text;
  for (const DovecotFile& file : files) {
    Json::Value record;
    record["path"] = file.path;
    record["text"] = file.text;
    list.append(record);
    text += "# " + file.path + "\n" + file.text + "\n";
  }
  if (call.out().json()) {
    call.out().List(list, {});
  } else {
    call.out().Raw(text);
  }
}

void Configure(Call& call) {
  if (call.Has("--apply") && call.Has("--print")) {
    throw Failure(kUsage, "--print changes nothing, --apply does: give one of them");
  }
  const bool applies = call.Has("--apply") && !call.Has("--dry-run");
  if (applies) {
    RequireOwnConfig(call);
  }
  const std::string folder =
      call.Has("--config") ? fs::absolute(call.Text("--config")).string() : "/etc/dovecot";
  const std::string main_file = folder + "/dovecot.conf";
  const korvmailserver::DeliverySettings delivery = Delivery();
  MDOMAIN::UTILS::MailTarget target;
  if (!target.Read()) {
    throw Failure(kFailed, "it cannot be told where mail goes");
  }
  const LmtpSocket lmtp =
      target.IsLmtp() ? SocketFor(delivery.lmtp, call.Text("--postfix")) : LmtpSocket();
  RequireDovecot(main_file, lmtp.IsHere());
  const std::string registry = RegistryHere();
  const std::vector<DovecotFile> files = {DovecotQuery(folder, registry, target),
                                          DovecotSettings(folder, lmtp, target)};
  if (applies) {
    MakeRegistry(registry);
    Apply(call, main_file, files);
  } else {
    Print(call, files);
  }
}

const Register kDovecot({
    "dovecot",
    "Dovecot, which keeps the mailboxes",
    {
        {"configure",
         "Print or write the files that let users log in by any address",
         "The name of an account and each of its addresses are one login, with the password that "
         "the host's other passdb tells: PAM for accounts of this host, else what is set up for "
         "the directory. Where mail comes to this machine by LMTP, the socket for Postfix is "
         "opened. Makes the "
         "registry of address owners first, which follows every change, and on a machine that "
         "pulls "
         "every pull, in the same file.",
         Effect::kChangesHere,
         {
             Flag("--print", "Print the files; so without --apply"),
             Flag("--dry-run", "Print the files, with --apply too"),
             Flag("--apply", "Write them, and have a running Dovecot read them"),
             Option("--config", "DIR",
                    "The folder with dovecot.conf, which includes conf.d/*.conf; /etc/dovecot "
                    "without it"),
             Option("--postfix", "DIR", "The folder with Postfix's main.cf; its own without it"),
         },
         Configure,
         ShowsItself()},
    },
});

}  // namespace
}  // namespace mdomain
