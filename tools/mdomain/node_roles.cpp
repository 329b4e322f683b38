// mdomain node manage, join, take-over: which machine has the domains, and which ones pull.
//
// What is about to be thrown away is said first, and refused without --discard: the files of this
// machine are kept aside, what only the store has is not.

#include "lib-domain/api/updater.h"
#include "lib-domain/sync/kept_files.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/node.h"
#include "tools/mdomain/node_content.h"
#include "tools/mdomain/node_standing.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

using korvmailserver::NodeRole;
using korvmailserver::NodeStanding;
using korvmailserver::StoreStanding;

// How often a pull is repeated because the other machine published meanwhile.
constexpr int kAttempts = 3;

void Say(const std::string& text) {
  Note(text);
}

std::string KeepAside() {
  std::string folder;
  if (!MDOMAIN::UTILS::KeepFilesAside(folder)) {
    throw Failure(kFailed, "this machine's files could not be kept aside, nothing was changed");
  }
  return folder;
}

// The store has this machine's management, and no publication that this machine does not know: a
// machine that was restored from a backup knows less.
bool IsManagedHere(const NodeStanding& standing, const StoreStanding& store) {
  return standing.role == NodeRole::kManager &&
         (store.is_empty ||
          (store.is_own && (store.term < standing.term || store.version <= standing.version)));
}

// "publication 12, of 2026-11-22T04:05:06Z"
std::string PublicationText(long long version, long long time) {
  return "publication " + std::to_string(version) + (time == 0 ? "" : ", of " + TimeText(time));
}

std::string And(const std::string& one, const std::string& other) {
  return one.empty() || other.empty() ? one + other : one + "; " + other;
}

// What of this machine's would be gone with a pull; empty where all of it was published: a member's
// files, and those of a machine that managed, unless it says otherwise.
std::string LostHere(const NodeStanding& standing, const StoreStanding& store, const Content& own,
                     const Content& there) {
  const bool is_newer = standing.version > store.version || standing.term > store.term;
  std::string newer = is_newer ? PublicationText(standing.version, standing.time) : "";
  if (standing.role == NodeRole::kMember) {
    return newer;
  }
  const std::string unpublished =
      standing.unpublished_since == 0
          ? ""
          : "changes since " + TimeText(standing.unpublished_since) + " that were never published";
  const std::string lost = store.is_followed || standing.unpublished_since != 0
                               ? ""
                               : "changes that were published and that nobody went on from";
  const Difference only = OnlyIn(own, there);
  const bool is_known = standing.role != NodeRole::kUndecided;
  return And(And(newer, And(unpublished, lost)),
             is_known ? only.Text() : Joined(only, Different(own, there)).Text());
}

// What of the store's would be gone when this machine publishes what it has.
std::string LostThere(const NodeStanding& standing, const StoreStanding& store, const Content& own,
                      const Content& there) {
  const bool is_newer = store.version > standing.version || store.term > standing.term;
  return And(is_newer ? PublicationText(store.version, store.time) : "", OnlyIn(there, own).Text());
}

// This machine, for which the store has `seen`, manages from now on and publishes.
void Begin(Call& call, const StoreStanding& seen) {
  if (!korvmailserver::BeginManaging(seen)) {
    throw Failure(kFailed, "the key store did not take this machine as the one that manages");
  }
  call.Lock();
  if (!MDOMAIN::API::Updater().Trigger()) {
    throw Failure(kFailed, "the domains are managed here now, and publishing them failed");
  }
}

bool IsSameManagement(const StoreStanding& one, const StoreStanding& other) {
  return one.is_empty == other.is_empty && one.manager == other.manager && one.term == other.term;
}

// As Begin, and tells a take-over by a third machine from a publication by the one that managed.
// False when that published meanwhile.
bool TryBegin(Call& call, const StoreStanding& seen) {
  try {
    Begin(call, seen);
    return true;
  } catch (const Failure&) {
    StoreStanding now;
    if (!korvmailserver::ReadStoreStanding(now) || now.is_own ||
        (IsSameManagement(now, seen) && now.version == seen.version)) {
      throw;
    }
    if (!IsSameManagement(now, seen)) {
      throw Failure(kFailed, "meanwhile another machine took over, " + ManagerOf(now) +
                                 ": nothing is lost, and this machine does not manage the domains");
    }
    return false;
  }
}

// Pulls what is published and goes on from it.
void TakeOverPublished(Call& call, const StoreStanding& shown) {
  if (!korvmailserver::BecomeMember()) {
    throw Failure(kFailed, "this machine could not begin to pull, nothing was changed");
  }
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const Pulled pulled = PullAndFollow(true);
    RequirePulled(pulled);
    StoreStanding seen = shown;
    seen.version = pulled.report.version;
    if (TryBegin(call, seen)) {
      return;
    }
  }
  throw Failure(kFailed, shown.manager +
                             " goes on publishing: stop what changes domains there, "
                             "and run it again");
}

// What a take-over finds.
struct Sides {
  NodeStanding standing;
  StoreStanding store;
  Content own;
  Content there;
};

void ShowSides(const Sides& sides) {
  const std::pair<const char*, Difference> lines[] = {
      {"only this machine has ", OnlyIn(sides.own, sides.there)},
      {"only the key store has ", OnlyIn(sides.there, sides.own)},
      {"not the same: ", Different(sides.own, sides.there)}};
  for (const auto& [head, difference] : lines) {
    if (!difference.IsEmpty()) {
      Say(head + difference.Text());
    }
  }
}

void RequireTakeOver(const Call& call, const Sides& sides) {
  const bool keep = call.Has("--keep");
  if (!keep && sides.store.is_empty) {
    throw Failure(kRefused,
                  "nothing is published that this machine could go on from: --keep publishes what "
                  "it has");
  }
  const std::string lost = keep ? LostThere(sides.standing, sides.store, sides.own, sides.there)
                                : LostHere(sides.standing, sides.store, sides.own, sides.there);
  if (!lost.empty() && !call.Has("--discard")) {
    throw Failure(kRefused, std::string(keep ? "the key store has what this machine lacks: "
                                             : "this machine has what the key store lacks: ") +
                                lost + ". Next: " +
                                (keep ? "take over without --keep" : "go on from it with --keep") +
                                ", or give --discard to go on without it");
  }
}

std::string TakeOverQuestion(const Sides& sides, bool keep) {
  const std::string here = korvmailserver::NodeName();
  const std::string before = sides.store.is_empty || sides.store.is_own
                                 ? ""
                                 : " and no longer on " + ManagerOf(sides.store) + ",";
  return "Manage the domains on this machine (" + here + ") from now on," + before +
         (keep ? " with what this machine has?" : " with what is published?");
}

std::string ContentText(const std::set<std::string>& domains, const Content& content) {
  return Counted(domains.size(), "domain") +
         (domains.empty() ? "" : " (" + FirstOf({domains.begin(), domains.end()}) + ")") + ", " +
         Counted(content.published.keys.size(), "key");
}

// The question of a first publication, with what stands on both sides.
std::string ManageQuestion() {
  const Content own = OwnContent();
  const Content there = StoreContent();
  const bool is_bare = there.published.keys.empty() && there.published.files.empty();
  return "Manage the domains on this machine (" + korvmailserver::NodeName() +
         ") from now on, and publish " + ContentText(own.domains, own) + " and " +
         Counted(ListUsers(MDOMAIN::DB::UserDBFilter()).size(), "user") +
         " to a key store in which " + (is_bare ? "nothing" : ContentText(there.domains, there)) +
         " is published?";
}

void RequireNobodyManages(const NodeStanding& standing, const StoreStanding& store) {
  const bool pulls = standing.role == NodeRole::kMember || standing.role == NodeRole::kReplaced;
  const std::string manager = !store.is_empty ? ManagerOf(store) : pulls ? standing.manager : "";
  if (!manager.empty()) {
    throw Failure(kRefused, "the domains are managed on " + manager +
                                ": mdomain node take-over lets this machine manage them instead");
  }
}

void MendPublication(Call& call) {
  std::vector<std::string> mended;
  if (!korvmailserver::PublishVerified(mended)) {
    throw Failure(kFailed, "this machine manages the domains, and publishing them failed");
  }
  Json::Value record;
  record["node"] = korvmailserver::NodeName();
  record["mended"] = JsonTexts(mended);
  call.out().Done(record, "this machine manages the domains already; what it has is published");
}

}  // namespace

std::string BecomePulling(const NodeStanding& standing, bool discard) {
  const StoreStanding store = StoreNow();
  if (store.is_empty) {
    throw Failure(kFailed,
                  "nothing is published: mdomain node manage on the machine that has the domains "
                  "comes first");
  }
  if (store.is_own) {
    throw Failure(kRefused,
                  "this machine manages the domains: mdomain node take-over on another one comes "
                  "first");
  }
  if (standing.role == NodeRole::kMember) {
    return "";
  }
  if (!discard) {
    const std::string lost = LostHere(standing, store, OwnContent(), StoreContent());
    if (!lost.empty()) {
      throw Failure(kRefused, "this machine has what the key store lacks: " + lost +
                                  ". Next: mdomain node join --discard keeps its files aside and "
                                  "pulls, mdomain node take-over --keep publishes them");
    }
  }
  std::string kept = KeepAside();
  if (!korvmailserver::BecomeMember()) {
    throw Failure(kFailed, "this machine could not begin to pull, nothing was changed");
  }
  return kept;
}

void ManageHere(Call& call) {
  const NodeStanding standing = SharedStanding();
  const StoreStanding store = StoreNow();
  if (standing.role == NodeRole::kManager && !IsForeign(store)) {
    call.LockHere();
    MendPublication(call);
    return;
  }
  RequireNobodyManages(standing, store);
  RequirePublishable(call);
  call.Ask(ManageQuestion());
  call.LockHere();
  Begin(call, store);
  Json::Value record;
  record["node"] = korvmailserver::NodeName();
  call.out().Done(record, "the domains are managed on " + korvmailserver::NodeName() + " now");
}

void JoinManager(Call& call) {
  const bool discard = call.Has("--discard");
  const std::string kept = BecomePulling(SharedStanding(), discard);
  const Pulled pulled = PullAndFollow(discard);
  RequireNotOlder(pulled.report);
  const NodeStanding standing = SharedStanding();
  Json::Value record;
  record["node"] = standing.name;
  record["manager"] = standing.manager;
  record["version"] = Json::Int64(pulled.report.version);
  record["kept"] = kept;
  record["files"] = PulledRows(pulled.report, true);
  call.out().Done(record, standing.name + " pulls what " + standing.manager + " publishes" +
                              (kept.empty() ? "" : "; what it had lies in " + kept));
  call.out().Flush();  // also when not everything could be pulled: the next pull goes on
  RequirePulled(pulled);
}

void TakeOver(Call& call) {
  const bool keep = call.Has("--keep");
  Sides sides;
  sides.standing = SharedStanding();
  sides.store = StoreNow();
  if (IsManagedHere(sides.standing, sides.store)) {
    call.LockHere();
    MendPublication(call);
    return;
  }
  sides.own = OwnContent();
  sides.there = StoreContent();
  ShowSides(sides);
  RequireTakeOver(call, sides);
  call.Ask(TakeOverQuestion(sides, keep));
  call.LockHere();
  if (keep) {
    RequirePublishable(call);
  }
  const std::string kept = KeepAside();
  if (!keep) {
    TakeOverPublished(call, sides.store);
  } else if (!TryBegin(call, sides.store)) {
    throw Failure(kFailed,
                  sides.store.manager + " published meanwhile, nothing was changed: look again");
  }
  Json::Value record;
  record["node"] = sides.standing.name;
  record["before"] = sides.store.manager;
  record["kept"] = kept;
  record["only_here"] = OnlyIn(sides.own, sides.there).Json();
  record["only_in_store"] = OnlyIn(sides.there, sides.own).Json();
  call.out().Done(record, "the domains are managed on " + sides.standing.name +
                              " now; what this machine had lies in " + kept);
}

}  // namespace mdomain
