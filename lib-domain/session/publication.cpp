// What mail services read, since when, and how far a refresh is.
#include <sys/stat.h>

#include <ctime>
#include <map>
#include <mutex>

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

struct Told {
  std::mutex mutex;
  std::optional<Progress> progress;
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
  {
    const std::lock_guard<std::mutex> lock(TheTold().mutex);
    TheTold().progress = Progress{"", 0, 0, time(nullptr)};
  }
  MDOMAIN::BASE::ListenToProgress([](const char* doing, std::size_t done, std::size_t total) {
    const std::lock_guard<std::mutex> lock(TheTold().mutex);
    if (TheTold().progress) {
      TheTold().progress->doing = doing;
      TheTold().progress->done = done;
      TheTold().progress->total = total;
    }
  });
}

TellingProgress::~TellingProgress() {
  MDOMAIN::BASE::ListenToProgress({});
  const std::lock_guard<std::mutex> lock(TheTold().mutex);
  TheTold().progress.reset();
}

}  // namespace session

Result<std::optional<Progress>> Session::RefreshProgress() const {
  using Found = std::optional<Progress>;
  return session::Guarded<Found>(nullptr, [&]() -> Result<Found> {
    session::RequireHost(*this, kWhat);
    const std::lock_guard<std::mutex> lock(TheTold().mutex);
    return TheTold().progress;
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
