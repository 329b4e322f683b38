// What mail services read, since when, and how far a refresh is.
#include <sys/stat.h>

#include <atomic>
#include <ctime>
#include <map>

#include "lib-domain/base/paths.h"
#include "lib-domain/base/progress.h"
#include "lib-domain/history/history.h"
#include "lib-domain/insight/doctor.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/pages.h"
#include "lib-domain/session/progress.h"
#include "lib-domain/sync/mail_settings.h"
#include "platform/include/mail_conf.h"
#include "platform/include/nodes.h"
#include "platform/include/root_path.h"

namespace mdomain {

using session::Fail;

namespace {

constexpr const char* kWhat = "see what is published";

// Read without a turn and without a lock, which a child that is forked might find held for ever.
// What a refresh does is named by literals.
struct Told {
  std::atomic<bool> is_going{false};
  std::atomic<const char*> doing{""};
  std::atomic<std::size_t> done{0};
  std::atomic<std::size_t> total{0};
  std::atomic<long long> since{0};

  void Tell(const char* what, std::size_t of_it, std::size_t all) {
    doing = what;
    done = of_it;
    total = all;
  }
};

Told& TheTold() {
  static auto& told = *new Told();
  return told;
}

// What is at the path now.
PublishedItem ItemOf(const std::string& key, const std::string& value, const std::string& path) {
  PublishedItem item{key, value};
  struct stat found {};
  if (stat(path.c_str(), &found) == 0) {
    item.time = found.st_mtime;
    item.size = found.st_size;
  }
  return item;
}

// Published keys, then the files that no key names.
std::vector<PublishedItem> ItemsOf(const std::map<std::string, std::string>& values) {
  std::vector<PublishedItem> items;
  for (const auto& [key, value] : values) {
    if (MDOMAIN::UTILS::KindOfKey(key) != MDOMAIN::UTILS::KeyKind::kPublished || value.empty()) {
      continue;
    }
    items.push_back(value.front() == '/' ? ItemOf(key, value, value) : PublishedItem{key, value});
  }
  namespace PATHS = MDOMAIN::PATHS;
  for (const std::string& path :
       {PATHS::EmailOwnerDb(), PATHS::PostfixDomains(), PATHS::PostfixAddresses(),
        PATHS::TargetEtcDir() + "bcc_maps.json"}) {
    PublishedItem item = ItemOf("", path, path);
    if (item.time != 0) {
      items.push_back(std::move(item));
    }
  }
  return items;
}

void AddTimes(Publication& publication) {
  korvmailserver::NodeStanding standing;
  if (!korvmailserver::ReadNodeStanding(standing)) {
    Fail("what this machine is among those that share the key store could not be read");
  }
  publication.machine = standing.manager;
  publication.version = standing.version;
  publication.unpublished_since = standing.unpublished_since;
  publication.time = standing.role == korvmailserver::NodeRole::kAlone
                         ? ItemOf("", "", MDOMAIN::PATHS::KeyStoreDb()).time
                         : standing.time;
  std::vector<MDOMAIN::HISTORY::Entry> newest;
  if (!MDOMAIN::HISTORY::ListEntries(1, newest)) {
    Fail("the history could not be read");
  }
  if (!newest.empty()) {
    publication.person = newest.front().person;
    publication.command = newest.front().command;
  }
}

}  // namespace

namespace session {

TellingProgress::TellingProgress() {
  TheTold().Tell("", 0, 0);
  TheTold().since = time(nullptr);
  TheTold().is_going = true;
  MDOMAIN::BASE::ListenToProgress([](const char* doing, std::size_t done, std::size_t total) {
    TheTold().Tell(doing, done, total);
  });
}

TellingProgress::~TellingProgress() {
  MDOMAIN::BASE::ListenToProgress({});
  TheTold().is_going = false;
}

}  // namespace session

Result<std::optional<Progress>> Session::RefreshProgress() const {
  using Found = std::optional<Progress>;
  return session::Guarded<Found>(nullptr, [&]() -> Result<Found> {
    session::RequireHost(*this, kWhat);
    const Told& told = TheTold();
    return told.is_going ? Found(Progress{told.doing.load(), told.done, told.total, told.since})
                         : std::nullopt;
  });
}

Result<Publication> Session::Published(const PublicationQuery& query,
                                       const std::string& cursor) const {
  return session::Read<Publication>(*this, [&] {
    session::RequireHost(*this, kWhat);
    const session::PlaceInList place(query.page_size, cursor);
    std::map<std::string, std::string> values;
    if (mailConfList(values) < 0) {
      Fail("the configuration could not be read");
    }
    Publication publication;
    AddTimes(publication);
    publication.behind = MDOMAIN::INSIGHT::LookAtPublications();
    const std::vector<PublishedItem> items = ItemsOf(values);
    auto at = std::min(items.size(), static_cast<std::size_t>(place.offset()));
    const auto end = std::min(items.size(), at + static_cast<std::size_t>(place.limit()));
    for (; at < end; ++at) {
      publication.items.items.push_back(items[at]);
    }
    place.End(items.size(), publication.items);
    return publication;
  });
}

}  // namespace mdomain
