// mdomain node status: what each machine has of what is published. This machine's own files and
// keys are compared with the store; the others count with what they said when they last pulled.
#include <algorithm>
#include <ctime>

#include "tools/mdomain/log_view.h"
#include "tools/mdomain/node.h"
#include "tools/mdomain/node_content.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::NodeReport;
using korvmailserver::NodeRole;
using korvmailserver::NodeStanding;
using korvmailserver::PublishedContent;
using korvmailserver::StoreStanding;
using Digests = std::map<std::string, std::string>;

constexpr const char* kCurrent = "current";

const char* RoleText(NodeRole role) {
  switch (role) {
    case NodeRole::kAlone:
      return "alone";
    case NodeRole::kUndecided:
      return "undecided";
    case NodeRole::kManager:
      return "manages";
    case NodeRole::kReplaced:
      return "replaced";
    default:
      return "pulls";
  }
}

struct Machine {
  std::string name;
  const char* role = RoleText(NodeRole::kMember);
  long long version = 0;
  std::string state = kCurrent;
  long long since = 0;  // seconds since 1970
};

// What this machine and the store say of each other.
struct Picture {
  NodeStanding standing;
  bool answers = false;  // the store, to all questions
  StoreStanding store;
  PublishedContent there;
  std::vector<NodeReport> nodes;
  std::string why;  // it does not answer
};

Picture Look() {
  Picture picture;
  picture.standing = SharedStanding();
  const HeldLog log;
  picture.answers = korvmailserver::ReadStoreStanding(picture.store) &&
                    korvmailserver::ReadStoreContent(picture.there) &&
                    korvmailserver::ListNodes(picture.nodes);
  const auto lines = log.Lines();
  picture.why = lines.empty() ? "it cannot be read" : lines.front();
  return picture;
}

Digests DigestsOf(const PublishedContent& content) {
  Digests digests;
  for (const auto& [key, file] : content.files) {
    digests[key] = file.digest;
  }
  return digests;
}

// "file bcc_db is missing, file alias_db differs"; empty where all are there and the same.
std::vector<std::string> Faults(const char* noun, const Digests& has, const Digests& wanted) {
  std::vector<std::string> faults;
  for (const auto& [key, value] : wanted) {
    const auto own = has.find(key);
    if (own == has.end() || own->second != value) {
      faults.push_back(std::string(noun) + " " + key +
                       (own == has.end() ? " is missing" : " differs"));
    }
  }
  return faults;
}

std::string Behind(const StoreStanding& store, long long term, long long version) {
  if (term < store.term) {
    return "older term";
  }
  return version < store.version ? std::to_string(store.version - version) + " behind" : "";
}

std::string StateOf(const NodeReport& node, const Picture& picture) {
  std::string behind = Behind(picture.store, node.term, node.version);
  if (!behind.empty()) {
    return behind;
  }
  const auto faults = Faults("file", node.digests, DigestsOf(picture.there));
  return faults.empty() ? kCurrent : FirstOf(faults);
}

// What this machine lacks of the store's, or the store of this machine's.
std::string OwnFaults(const Picture& picture) {
  PublishedContent own;
  if (!korvmailserver::ReadOwnContent(own)) {
    return "what it has cannot be read";
  }
  const bool manages = picture.standing.role == NodeRole::kManager;
  const PublishedContent& has = manages ? picture.there : own;
  const PublishedContent& wanted = manages ? own : picture.there;
  std::vector<std::string> faults = Faults("file", DigestsOf(has), DigestsOf(wanted));
  Digests keys = wanted.keys;
  for (const auto& file : wanted.files) {
    keys.erase(file.first);
  }
  const auto keys_amiss = Faults("key", has.keys, keys);
  faults.insert(faults.end(), keys_amiss.begin(), keys_amiss.end());
  return faults.empty() ? "" : (manages ? "in the key store: " : "") + FirstOf(faults);
}

// Of one that pulls or manages.
std::string OwnState(const Picture& picture) {
  const NodeStanding& standing = picture.standing;
  if (standing.unpublished_since != 0) {
    return "unpublished changes";
  }
  if (!picture.answers) {
    return "unknown";
  }
  if (picture.store.is_empty) {
    return "nothing is published";
  }
  if (standing.role == NodeRole::kManager && IsForeign(picture.store)) {
    return "replaced by " + ManagerOf(picture.store);
  }
  const std::string behind = Behind(picture.store, standing.term, standing.version);
  const std::string faults = behind.empty() ? OwnFaults(picture) : behind;
  return faults.empty() ? kCurrent : faults;
}

Machine ThisMachine(const Picture& picture) {
  const NodeStanding& standing = picture.standing;
  Machine machine;
  machine.name = standing.name;
  machine.role = RoleText(standing.role);
  machine.version = standing.version;
  machine.since = standing.unpublished_since != 0 ? standing.unpublished_since : standing.time;
  switch (standing.role) {
    case NodeRole::kUndecided:
      machine.state = "nobody has said what it is";
      break;
    case NodeRole::kReplaced:
      machine.state =
          "replaced by " + standing.manager + " (term " + std::to_string(standing.term) + ")";
      break;
    default:
      machine.state = OwnState(picture);
  }
  return machine;
}

// Where another one manages: what it published is what counts.
void AddManager(const Picture& picture, std::vector<Machine>& machines) {
  const StoreStanding& store = picture.store;
  const std::string& remembered = picture.standing.manager;
  if (picture.answers && IsForeign(store)) {
    machines.push_back({store.manager, "manages", store.version, kCurrent, store.time});
  } else if (!remembered.empty() && remembered != picture.standing.name) {
    machines.push_back({remembered, "manages", 0, "unknown", 0});
  }
}

std::vector<Machine> Machines(const Picture& picture) {
  std::vector<Machine> machines = {ThisMachine(picture)};
  AddManager(picture, machines);
  for (const NodeReport& node : picture.nodes) {
    const bool is_known = std::any_of(machines.begin(), machines.end(), [&](const Machine& known) {
      return known.name == node.name;
    });
    if (!is_known) {
      machines.push_back({node.name, "pulls", node.version, StateOf(node, picture), node.time});
    }
  }
  return machines;
}

Json::Value Row(const Machine& machine) {
  Json::Value row;
  row["node"] = machine.name;
  row["role"] = machine.role;
  row["version"] = Json::Int64(machine.version);
  row["state"] = machine.state;
  row["since"] = TimeText(machine.since);
  row["age"] =
      machine.since == 0
          ? Json::Value()
          : Json::Value(Json::Int64(std::max<long long>(time(nullptr) - machine.since, 0)));
  return row;
}

std::string AgeText(const Json::Value& age) {
  if (age.isNull()) {
    return "";
  }
  const long long seconds = age.asInt64();
  constexpr long long kMinute = 60;
  constexpr long long kHour = 60 * kMinute;
  constexpr long long kDay = 24 * kHour;
  return seconds < 2 * kMinute ? std::to_string(seconds) + " s"
         : seconds < 2 * kHour ? std::to_string(seconds / kMinute) + " min"
         : seconds < 2 * kDay  ? std::to_string(seconds / kHour) + " h"
                               : std::to_string(seconds / kDay) + " d";
}

void RequireCurrent(const Picture& picture, const std::vector<Machine>& machines) {
  if (!picture.answers) {
    throw Failure(kFailed,
                  "the key store does not answer, so this is what is known here: " + picture.why);
  }
  if (picture.store.is_empty) {
    throw Failure(kFailed,
                  "the key store is empty; the next publication of the machine that manages fills "
                  "it");
  }
  std::vector<std::string> names;
  for (const Machine& machine : machines) {
    if (machine.state != kCurrent) {
      names.push_back(machine.name);
    }
  }
  if (!names.empty()) {
    throw Failure(kFailed, "not current: " + FirstOf(names));
  }
}

}  // namespace

void ShowMachines(Call& call) {
  const Picture picture = Look();
  const std::vector<Machine> machines = Machines(picture);
  Json::Value rows(Json::arrayValue);
  for (const Machine& machine : machines) {
    rows.append(Row(machine));
  }
  call.out().List(rows, {{"node", "MACHINE"},
                         {"role", "ROLE"},
                         {"version", "PUBLICATION"},
                         {"since", "SINCE"},
                         {"age", "AGE", AgeText},
                         {"state", "STATE"}});
  call.out().Flush();  // before the message, and whole although the command fails
  RequireCurrent(picture, machines);
}

void TellRole(Call& call) {
  NodeStanding standing;
  if (!korvmailserver::ReadNodeStanding(standing)) {
    throw Failure(kFailed, "what this machine is could not be read");
  }
  Json::Value record;
  record["role"] = RoleText(standing.role);
  call.out().Answer(record, RoleText(standing.role));
}

}  // namespace mdomain
