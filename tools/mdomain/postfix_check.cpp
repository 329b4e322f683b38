// mdomain postfix check: whether the maps and the running server say of each address what the model
// says.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/sync/compiled_maps.h"
#include "lib-domain/sync/dead_end.h"
#include "lib-domain/sync/mail_target.h"
#include "lib-domain/sync/postfix_maps.h"
#include "platform/include/text.h"
#include "tools/mdomain/log_view.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/postfix.h"
#include "tools/mdomain/postfix_obstacles.h"
#include "tools/mdomain/smtp_probe.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::FoldMapKey;
using korvmailserver::MapEntries;
using MDOMAIN::UTILS::DeadEnd;
using MDOMAIN::UTILS::MailTarget;
using MDOMAIN::UTILS::NameOfMap;
using MDOMAIN::UTILS::OwnerRegistryContent;
using MDOMAIN::UTILS::PostfixContent;

constexpr int kSmtpPort = 25;

// An address and what is said of it: an account's address, or nothing.
struct Answer {
  std::string address;
  std::string model;
  std::string map;
  std::string server = "";    // empty: not asked
  bool is_unoffered = false;  // the server was told not to take this spelling
};

bool IsDifferent(const Answer& answer) {
  return answer.model != answer.map || (!answer.server.empty() && !answer.is_unoffered &&
                                        answer.server[0] != (answer.model.empty() ? '5' : '2'));
}

struct Model {
  OwnerRegistryContent owners;
  PostfixContent maps;
};

Model ReadModel() {
  Model model;
  if (!MDOMAIN::UTILS::CollectOwners(model.owners) ||
      !MDOMAIN::UTILS::CollectPostfixMaps(model.owners, model.maps)) {
    throw Failure(kFailed, "the addresses could not be read");
  }
  return model;
}

std::string ValueIn(const MapEntries& entries, const std::string& key) {
  const auto found = entries.find(FoldMapKey(key));
  return found == entries.end() ? "" : found->second;
}

std::string AddressThatNobodyHas(const std::string& domain) {
  static std::random_device random;
  return "nobody-" + std::to_string(random()) + "@" + domain;
}

// Every address, as it is written, at every name of its domain, those in ASCII first; for every
// name one that nobody has.
std::vector<std::string> ListAddresses(const Model& model) {
  std::multimap<int, std::string> names;
  std::vector<std::string> ascii;
  std::vector<std::string> others;
  const auto add = [&](const std::string& address) {
    (korvmailserver::HasNonAscii(address) ? others : ascii).push_back(address);
  };
  for (const auto& name : model.owners.domains) {
    names.emplace(name.GetDomainIdx(), name.GetDomainName());
    add(AddressThatNobodyHas(name.GetDomainName()));
  }
  for (const auto& part : model.owners.local_parts) {
    const auto [begin, end] = names.equal_range(part.GetDomainIdx());
    for (auto name = begin; name != end; ++name) {
      const std::string address = part.GetLocalPart() + "@" + name->second;
      if (!ValueIn(model.maps.addresses, address).empty()) {
        add(address);
      }
    }
  }
  std::set<std::string> known;
  for (const auto* addresses : {&ascii, &others}) {
    for (const std::string& address : *addresses) {
      known.insert(FoldMapKey(address));
    }
  }
  // What goes to several, postmaster and abuse.
  for (const auto& [address, receivers] : model.maps.addresses) {
    if (known.count(address) == 0) {
      add(address);
    }
  }
  ascii.insert(ascii.end(), others.begin(), others.end());
  return ascii;
}

// RFC 5321 wants somebody there for each domain that receives mail.
void SayWhereNobodyIsPostmaster(const Model& model) {
  std::map<int, std::vector<std::string>> lacking;
  for (const auto& name : model.owners.domains) {
    const std::string address = "postmaster@" + name.GetDomainName();
    if (ValueIn(model.maps.addresses, address).empty()) {
      lacking[name.GetDomainIdx()].push_back(address);
    }
  }
  for (const auto& [domain_idx, addresses] : lacking) {
    Warn("nobody gets the mail for " + FirstOf(addresses) +
         ": give the domain an administrator (mdomain user set ... --role domain_admin), or name "
         "an account with mdomain config set postmaster");
  }
}

void SayWhatLeadsNowhere() {
  std::vector<DeadEnd> dead_ends;
  if (!MDOMAIN::UTILS::ListDeadEnds(dead_ends)) {
    throw Failure(kFailed, "the addresses could not be read");
  }
  for (const DeadEnd& end : dead_ends) {
    Warn(end.receiver.empty()
             ? "nobody gets the mail for " + end.address + ": its members are gone"
             : "mail for " + end.address + " goes to " + end.receiver +
                   (end.is_loop ? ", which leads back to it" : ", an address that nobody has"));
  }
}

// Accounts that share a mailbox, as the servers behind ignore letter case and, by [delivery],
// domains.
void SayWhoShares(const Model& model) {
  MailTarget target;
  if (!target.Read()) {
    throw Failure(kFailed, "it cannot be told where mail goes");
  }
  std::map<std::string, std::set<std::string>> by_address;
  for (const auto& part : model.owners.local_parts) {
    by_address[FoldMapKey(target.AddressOf(part.GetUserName()))].insert(part.GetUserName());
  }
  for (const auto& [address, names] : by_address) {
    if (names.size() > 1 && !address.empty()) {
      Warn("the mail of " + FirstOf({names.begin(), names.end()}) + " goes to one mailbox, " +
           address + ": see [delivery] of host.ini, or rename an account");
    }
  }
}

// Without what stands behind a delimiter, when nobody has the address with it: so does Postfix.
std::string AskedAddress(const Model& model, const std::string& address,
                         const std::string& delimiters) {
  const size_t at = address.rfind('@');
  const size_t end = address.find_first_of(delimiters, 1);
  const bool is_known = !ValueIn(model.maps.addresses, address).empty();
  return is_known || end >= at ? address : address.substr(0, end) + address.substr(at);
}

std::vector<Answer> AskMaps(const PostfixHost& host, const Model& model,
                            const std::vector<std::string>& addresses) {
  std::vector<std::string> asked;
  asked.reserve(addresses.size());
  for (const std::string& address : addresses) {
    asked.push_back(AskedAddress(model, address, host.Value("recipient_delimiter")));
  }
  const auto found = host.LookUp(NameOfMap(MDOMAIN::PATHS::PostfixAddresses()), asked);
  std::vector<Answer> answers;
  answers.reserve(addresses.size());
  for (size_t i = 0; i < addresses.size(); ++i) {
    const auto value = found.find(asked[i]);
    answers.push_back({addresses[i], ValueIn(model.maps.addresses, asked[i]),
                       value == found.end() ? "" : value->second});
  }
  return answers;
}

// Why the server could not be asked, or the empty string.
std::string AskServer(const PostfixHost& host, int port, std::vector<Answer>& answers) {
  const bool is_utf8_off = IsUtf8Discarded(host);
  try {
    SmtpProbe probe(port);
    probe.Connect();
    MDOMAIN::BASE::Progress progress("asking the server for addresses", answers.size());
    for (Answer& answer : answers) {
      answer.server = probe.Ask(answer.address);
      answer.is_unoffered = is_utf8_off && answer.server == kNoSmtpUtf8;
      progress.Step();
    }
    return "";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

// What the maps hold that the model has not, and names that they lack.
void AddWrongEntries(const PostfixHost& host, const Model& model, std::vector<Answer>& answers) {
  for (const auto& [address, value] :
       host.ListEntries(NameOfMap(MDOMAIN::PATHS::PostfixAddresses()))) {
    if (model.maps.addresses.count(address) == 0) {
      answers.push_back({address, "", value});
    }
  }
  std::vector<std::string> names;
  for (const auto& [name, value] : model.maps.domains) {
    names.push_back(name);
  }
  const auto found = host.LookUp(NameOfMap(MDOMAIN::PATHS::PostfixDomains()), names);
  for (const auto& [name, value] : model.maps.domains) {
    if (found.count(name) == 0) {
      answers.push_back({"@" + name, value, ""});
    }
  }
}

std::vector<std::string> TypedAddress(const Call& call, const Model& model) {
  const std::string address = call.Text("ADDRESS");
  const size_t at = address.rfind('@');
  RequirePlainText("the address", address);
  if (at == std::string::npos || at == 0 || address.find_first_of(" <>") != std::string::npos) {
    throw Failure(kRefused, "\"" + address + "\" is not an address");
  }
  if (model.maps.domains.count(FoldMapKey(address.substr(at + 1))) == 0) {
    throw Failure(kNotFound, "\"" + address.substr(at + 1) + "\" is no domain of this host");
  }
  return {address};
}

size_t PrintAnswers(Call& call, const std::vector<Answer>& answers, bool only_different) {
  Json::Value rows(Json::arrayValue);
  size_t different = 0;
  for (const Answer& answer : answers) {
    different += IsDifferent(answer) ? 1 : 0;
    if (IsDifferent(answer) || !only_different) {
      Json::Value row;
      row["address"] = answer.address;
      row["model"] = answer.model;
      row["map"] = answer.map;
      row["server"] = answer.server;
      rows.append(row);
    }
  }
  call.out().List(
      rows, {{"address", "ADDRESS"}, {"model", "MODEL"}, {"map", "MAP"}, {"server", "SERVER"}});
  return different;
}

void Check(Call& call) {
  const int port = call.Int("--port", kSmtpPort);
  const Model model = ReadModel();
  const PostfixHost host(call.Text("--config"));
  const bool is_one = call.Has("ADDRESS");
  std::vector<Answer> answers;
  std::string unasked;
  {
    const Progress shown(!is_one && !call.out().json(), "asking the maps for addresses");
    answers = AskMaps(host, model, is_one ? TypedAddress(call, model) : ListAddresses(model));
    unasked = AskServer(host, port, answers);
  }
  const size_t asked = answers.size();
  if (!is_one) {
    AddWrongEntries(host, model, answers);
    WarnOfUncompiled(MDOMAIN::UTILS::CompiledMapType(), model.maps.addresses);
    SayWhereNobodyIsPostmaster(model);
    SayWhatLeadsNowhere();
    SayWhoShares(model);
  }
  const size_t different = PrintAnswers(call, answers, !is_one);
  call.out().Flush();
  if (!unasked.empty()) {
    throw Failure(kFailed, unasked);
  }
  if (different != 0) {
    throw Failure(kFailed, "model, map and server do not agree on " + std::to_string(different) +
                               " of " + std::to_string(asked) + " addresses");
  }
  if (!is_one) {
    const auto unoffered = std::count_if(answers.begin(), answers.end(),
                                         [](const Answer& answer) { return answer.is_unoffered; });
    call.out().Line("model, map and server agree on " + std::to_string(asked) + " addresses" +
                    (unoffered == 0 ? ""
                                    : "; " + std::to_string(unoffered) +
                                          " of them are beyond ASCII, for which the server "
                                          "takes no mail"));
  }
}

const Register kCheck({
    "postfix",
    "Postfix, which receives the mail of the domains",
    {
        {"check",
         "Compare model, maps and the running server",
         "Asks postmap and, on 127.0.0.1, the server for every address at every name of its "
         "domain, and for one at each name that nobody has, which must be refused. No mail is "
         "sent. Lists those of which they say different things, and ends with 1 when there are "
         "any. With ADDRESS, shows what is said of it. Warns of addresses whose mail nobody gets, "
         "of "
         "those that lead to themselves, and of accounts that share a mailbox.",
         Effect::kReads,
         {
             Optional("ADDRESS", "An address in a domain of this host"),
             Number("--port", "The port of the server; 25 without it"),
             PostfixConfigOption(),
         },
         Check},
    },
});

}  // namespace
}  // namespace mdomain
