// mdomain node: the machines that share a key store. One of them manages the domains and publishes;
// the others pull the published files and answer from them.
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <map>

#include "lib-domain/api/updater.h"
#include "lib-domain/sync/node_publication.h"
#include "platform/include/key_store.h"
#include "platform/include/node_files.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/log_view.h"

namespace mdomain {
namespace {

using korvmailserver::NodeFile;
using korvmailserver::PublishedFile;
using korvmailserver::PullResult;
using PublishedFiles = std::vector<PublishedFile>;

constexpr int kWatchInterval = 5;  // seconds

std::string TimeText(long long seconds) {
  const auto time = static_cast<time_t>(seconds);
  tm parts = {};
  char text[32] = {};
  if (seconds <= 0 || gmtime_r(&time, &parts) == nullptr) {
    return "";
  }
  (void)strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

const char* ResultText(PullResult result) {
  switch (result) {
    case PullResult::kUnchanged:
      return "unchanged";
    case PullResult::kReplaced:
      return "replaced";
    case PullResult::kPublishedHere:
      return "own";
    default:
      return "failed";
  }
}

PublishedFiles Published() {
  PublishedFiles files;
  if (!korvmailserver::ListPublishedFiles(files)) {
    throw Failure(kFailed, "the published files could not be listed");
  }
  return files;
}

// Pulls the files; false when one could not be pulled. Prints the rows whose result is not
// `left_out`.
bool Pull(Call& call, const PublishedFiles& files, const char* left_out,
          std::vector<PullResult>& results) {
  results = korvmailserver::PullPublishedFiles(files);
  Json::Value rows(Json::arrayValue);
  for (size_t i = 0; i < files.size(); ++i) {
    const std::string result = ResultText(results[i]);
    if (result == left_out) {
      continue;
    }
    Json::Value row;
    row["key"] = files[i].key;
    row["path"] = files[i].path;
    row["result"] = result;
    rows.append(row);
  }
  if (*left_out == '\0' || !rows.empty()) {
    call.out().List(rows, {{"result", "RESULT"}, {"key", "KEY"}, {"path", "PATH"}});
  }
  return std::find(results.begin(), results.end(), PullResult::kFailed) == results.end();
}

void PullOnce(Call& call) {
  std::vector<PullResult> results;
  if (!Pull(call, Published(), "", results)) {
    call.out().Flush();
    throw Failure(kFailed, "not every file could be pulled; the old ones stay");
  }
}

// Looks at a file again only when its published content, place or machine has changed.
[[noreturn]] void Watch(Call& call, unsigned interval) {
  std::map<std::string, std::string> done;
  for (;; sleep(interval)) {
    PublishedFiles files;
    if (!korvmailserver::ListPublishedFiles(files)) {
      continue;
    }
    const auto mark = [](const PublishedFile& file) {
      return file.node + '\0' + file.path + '\0' + file.digest + '\0' + std::to_string(file.mode);
    };
    files.erase(std::remove_if(files.begin(), files.end(),
                               [&](const PublishedFile& file) {
                                 const auto old = done.find(file.key);
                                 return old != done.end() && old->second == mark(file);
                               }),
                files.end());
    std::vector<PullResult> results;
    Pull(call, files, "unchanged", results);
    call.out().Flush();
    for (size_t i = 0; i < files.size(); ++i) {
      if (results[i] != PullResult::kFailed) {
        done[files[i].key] = mark(files[i]);
      }
    }
  }
}

void PullFiles(Call& call) {
  const int interval = call.Int("--interval", kWatchInterval);
  if (interval == 0 || (call.Has("--interval") && !call.Has("--watch"))) {
    throw Failure(kUsage, "--interval is a number of seconds above 0, and wants --watch");
  }
  ShowErrorsAtOnce();  // each file that cannot be pulled has one
  if (call.Has("--watch")) {
    Watch(call, static_cast<unsigned>(interval));
  }
  PullOnce(call);
}

Json::Value StatusRow(const std::string& node, const std::string& key, const std::string& path,
                      const char* state, long long since) {
  Json::Value row;
  row["node"] = node;
  row["key"] = key;
  row["path"] = path;
  row["state"] = state;
  row["since"] = TimeText(since);
  return row;
}

void AppendNode(const std::string& node, const std::map<std::string, NodeFile>& has,
                const PublishedFiles& files, Json::Value& rows) {
  for (const PublishedFile& file : files) {
    const auto own = has.find(file.key);
    if (file.node == node) {
      rows.append(StatusRow(node, file.key, file.path, "published", file.published));
    } else if (own == has.end()) {
      rows.append(StatusRow(node, file.key, file.path, "missing", 0));
    } else {
      const bool current = own->second.digest == file.digest;
      rows.append(
          StatusRow(node, file.key, file.path, current ? "current" : "old", own->second.pulled));
    }
  }
}

void ShowStatus(Call& call) {
  const PublishedFiles files = Published();
  std::vector<NodeFile> node_files;
  if (!korvmailserver::ListNodeFiles(node_files)) {
    throw Failure(kFailed, "what the machines have could not be read");
  }
  std::map<std::string, std::map<std::string, NodeFile>> nodes;
  for (const PublishedFile& file : files) {
    nodes[file.node];
  }
  for (const NodeFile& file : node_files) {
    nodes[file.node][file.key] = file;
  }
  Json::Value rows(Json::arrayValue);
  for (const auto& [node, has] : nodes) {
    AppendNode(node, has, files, rows);
  }
  call.out().List(rows, {{"node", "MACHINE"},
                         {"key", "KEY"},
                         {"state", "STATE"},
                         {"since", "SINCE"},
                         {"path", "PATH"}});
}

void TakeOver(Call& call) {
  std::string before;
  const bool known = korvmailserver::GetPublisher(MDOMAIN::UTILS::kDatabaseKey, before);
  if (!known || !KORV::POSTARA_SERVER::KORVMailNodeCluster::isClusterHealth(1)) {
    throw Failure(kFailed, "the key store is not healthy, nothing was changed");
  }
  const std::string here = korvmailserver::NodeName();
  call.Ask("Manage the domains on this machine (" + here + ") from now on" +
           (before.empty() || before == here ? "?" : ", and no longer on " + before + "?"));
  call.LockHere();
  if (!call.Has("--keep")) {
    const PublishedFiles files = Published();
    const auto results = korvmailserver::PullPublishedFiles(files);
    if (std::find(results.begin(), results.end(), PullResult::kFailed) != results.end()) {
      throw Failure(kFailed, "not every file could be pulled, this machine manages nothing yet");
    }
  }
  if (!MDOMAIN::API::Updater().Trigger()) {
    throw Failure(kFailed, "publishing failed; run it again");
  }
  Json::Value record;
  record["node"] = here;
  record["before"] = before;
  call.out().Done(record, "the domains are managed on " + here + " now");
}

const Register kNode({
    "node",
    "Machines that share a key store, and the files that they get from it",
    {
        {"pull",
         "Fetch the published files and put them where this machine's programs read them",
         "A reader sees the old or the new file, whole. Files that this machine publishes itself "
         "are left alone. With --watch it goes on until it is ended, shows what it replaced, and "
         "waits for a key store that does not answer.",
         Effect::kReads,
         {Flag("--watch", "Go on and fetch what is published later"),
          Number("--interval", "Seconds between two looks at the key store (5)")},
         PullFiles},
        {"status",
         "Show which machine has which file",
         "A machine appears with its first pull. States: published (by this machine), current, old "
         "(something newer is published), missing.",
         Effect::kReads,
         {},
         ShowStatus},
        {"take-over",
         "Manage the domains on this machine instead of another",
         "Pulls what is published and publishes it as this machine's own. From then on commands "
         "that change something are refused on the other machine. Changes that the other machine "
         "has not published are lost. With --keep this machine's files are published as they "
         "are.",
         Effect::kDestroys,
         {Flag("--keep", "Do not pull first")},
         TakeOver},
    },
});

}  // namespace
}  // namespace mdomain
