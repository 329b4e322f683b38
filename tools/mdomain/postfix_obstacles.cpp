#include "tools/mdomain/postfix_obstacles.h"

#include <algorithm>
#include <set>

#include "lib-domain/sync/compiled_maps.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/text.h"
#include "tools/mdomain/postfix.h"
#include "tools/mdomain/smtp_probe.h"
#include "tools/mdomain/socket_access.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::FoldMapKey;
using MDOMAIN::UTILS::MailTarget;
using MDOMAIN::UTILS::PostfixContent;

// Settings that make a domain one of another kind, and what would come of it beside ours.
struct OtherDomains {
  const char* setting;
  const char* reason;
};
constexpr OtherDomains kOtherDomains[] = {
    {"mydestination",
     "so Postfix would also take mail there for each account of this host and each of its aliases"},
    {"virtual_mailbox_domains",
     "so Postfix would warn with each message and take the domain for an alias domain: addresses "
     "that only virtual_mailbox_maps has would be refused"},
    {"relay_domains",
     "so Postfix would warn with each message and take the domain for an alias domain: addresses "
     "that only the server behind it has would be refused"},
};

// "proxy:hash:/path", and neither a name nor a file of names.
bool IsTable(const std::string& part) {
  return part.find(':') != std::string::npos && part.find_first_of("/![") != 0;
}

std::vector<std::string> NamesOf(const PostfixContent& content) {
  std::vector<std::string> names;
  for (const auto& [name, value] : content.domains) {
    names.push_back(name);
  }
  return names;
}

// The parts of a setting that lists names, those of its files instead of the files.
std::vector<std::string> PartsOf(const std::string& value) {
  std::vector<std::string> parts;
  for (const std::string& part : SplitSetting(value)) {
    std::string bytes;
    if (part.front() == '/' && korvmailserver::ReadFile(part, bytes) == 0) {
      const std::vector<std::string> in_file = SplitSetting(bytes);
      parts.insert(parts.end(), in_file.begin(), in_file.end());
    } else {
      parts.push_back(part);
    }
  }
  return parts;
}

// Those of our domains that the setting holds.
std::vector<std::string> HeldNames(const PostfixHost& host, const std::string& setting,
                                   const PostfixContent& content) {
  std::set<std::string> held;
  for (const std::string& part : PartsOf(host.Value(setting))) {
    if (!IsTable(part)) {
      const std::string name = FoldMapKey(part);
      if (content.domains.count(name) != 0) {
        held.insert(name);
      }
      continue;
    }
    for (const auto& [name, value] : host.LookUp(part, NamesOf(content))) {
      held.insert(name);
    }
  }
  return {held.begin(), held.end()};
}

bool HoldsLocalhost(const PostfixHost& host) {
  const std::vector<std::string> parts = PartsOf(host.Value("mydestination"));
  return std::any_of(parts.begin(), parts.end(), [&](const std::string& part) {
    return IsTable(part) ? !host.LookUp(part, {"localhost"}).empty()
                         : FoldMapKey(part) == "localhost";
  });
}

// Services work in the queue's folder, so relative paths count from there.
std::string RootFor(const PostfixHost& host, bool is_chrooted, const std::string& socket) {
  const bool is_relative = socket.find(":/") == std::string::npos;
  return is_chrooted || is_relative ? host.Value("queue_directory") : "";
}

// False with the reason.
bool IsReachableFrom(const PostfixHost& host, bool is_chrooted, const std::string& socket,
                     std::string& why) {
  return IsReachable(socket, RootFor(host, is_chrooted, socket), host.Value("mail_owner"), why);
}

}  // namespace

bool IsUtf8Discarded(const PostfixHost& host) {
  const std::vector<std::string> keywords = SplitSetting(host.Value("smtpd_discard_ehlo_keywords"));
  return std::any_of(keywords.begin(), keywords.end(),
                     [](const std::string& keyword) { return FoldMapKey(keyword) == "smtputf8"; });
}

bool TakesUtf8(const PostfixHost& host, const MailTarget& target, const std::string& lmtp) {
  return !target.IsLmtp() || SmtpProbe::OffersUtf8ByLmtp(ConnectToSocket(
                                 lmtp, RootFor(host, host.IsChrooted("lmtp/unix", "lmtp"), lmtp)));
}

std::vector<std::string> ListObstacles(const PostfixHost& host, const PostfixContent& content,
                                       const MailTarget& target, const std::string& milter) {
  std::vector<std::string> obstacles;
  if (MapTypeFor(host).empty()) {
    obstacles.emplace_back(
        "this Postfix reads no maps that are compiled: apt-get install "
        "postfix-lmdb");
  }
  for (const auto& [setting, reason] : kOtherDomains) {
    const std::vector<std::string> held = HeldNames(host, setting, content);
    if (!held.empty()) {
      obstacles.push_back(std::string(setting) + " holds " + FirstOf(held) + ", " + reason +
                          ": take what is managed here out of " + setting + " (" +
                          host.Setting(setting) + ")");
    }
  }
  if (!target.IsLmtp() && !HoldsLocalhost(host)) {
    obstacles.emplace_back(
        "mydestination does not hold localhost, where local accounts get their mail: add it");
  }
  std::string why;
  if (!milter.empty() && !IsReachableFrom(host, host.IsChrooted("*/inet", "smtpd"), milter, why)) {
    obstacles.push_back("the milter " + milter + " cannot be reached, and Postfix would put off " +
                        "all mail (451): " + why);
  }
  return obstacles;
}

std::vector<std::string> ListCautions(const PostfixHost& host, const PostfixContent& content,
                                      const MailTarget& target, const std::string& lmtp,
                                      bool takes_utf8, bool has_milter) {
  std::vector<std::string> cautions;
  const std::string origin = FoldMapKey(host.Value("myorigin"));
  if (content.domains.count(origin) != 0 && content.addresses.count("root@" + origin) == 0) {
    cautions.push_back("mail of this host to root goes to root@" + origin +
                       " (myorigin), which nobody has: set another myorigin, or give somebody the "
                       "alias root");
  }
  if (const std::string type = MapTypeFor(host); !type.empty() && type != "lmdb") {
    cautions.push_back(
        "this Postfix cannot read maps of type lmdb, so each change of an address "
        "writes a map of type " +
        type +
        " anew, and sessions that are open keep the old one: apt-get install "
        "postfix-lmdb, then run this again");
  }
  if (const std::string text =
          MDOMAIN::UTILS::TellUncompilable(MapTypeFor(host), content.addresses);
      !text.empty()) {
    cautions.push_back(text);
  }
  std::string why;
  if (target.IsLmtp() && !IsReachableFrom(host, host.IsChrooted("lmtp/unix", "lmtp"), lmtp, why)) {
    cautions.push_back("mail waits in the queue until " + lmtp + " can be reached: " + why);
  }
  const bool has_utf8 =
      std::any_of(content.addresses.begin(), content.addresses.end(),
                  [](const auto& entry) { return korvmailserver::HasNonAscii(entry.first); });
  if (has_utf8 && !takes_utf8) {
    cautions.emplace_back(
        "the server behind LMTP does not offer SMTPUTF8, as Dovecot 2.3, so Postfix must not take "
        "mail that needs it: addresses in domains beyond ASCII are reached as xn--..., those that "
        "are beyond ASCII before the @ not at all. Accounts that this host knows can be delivered "
        "with local instead ([delivery] of host.ini)");
  }
  const bool has_utf8_names =
      std::any_of(content.addresses.begin(), content.addresses.end(),
                  [](const auto& entry) { return korvmailserver::HasNonAscii(entry.second); });
  if (has_utf8_names && !takes_utf8) {
    cautions.emplace_back(
        "the server behind LMTP takes no names of accounts beyond ASCII: their mail bounces");
  }
  if (has_utf8 && takes_utf8 && IsUtf8Discarded(host)) {
    cautions.emplace_back(
        "smtpd_discard_ehlo_keywords holds smtputf8, without which addresses beyond ASCII get no "
        "mail in that spelling: take it out");
  }
  std::string is_filter_wanted;
  mailConfGet("mimedefang_enable", is_filter_wanted);
  if (is_filter_wanted == "yes" && !has_milter) {
    cautions.emplace_back("there are disclaimers, and smtpd_milters names no filter: --milter");
  }
  return cautions;
}

}  // namespace mdomain
