// The model as it was before a pull lies beside the one in force until everything that follows is
// done. So a run that is killed leaves the mark by which the next one sees that, and what to
// compare with.
#include "lib-domain/sync/follow_pull.h"

#include <json/value.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <set>
#include <sstream>

#include "lib-domain/base/log_line.h"
#include "lib-domain/base/paths.h"
#include "lib-domain/base/text.h"
#include "lib-domain/db/model_difference.h"
#include "lib-domain/db/schema.h"
#include "lib-domain/sync/model_in_force.h"
#include "lib-domain/sync/node_publication.h"
#include "lib-domain/sync/pull_hooks.h"
#include "lib-domain/sync/pulled_addresses.h"
#include "lib-domain/utils/domain_backend_related.h"
#include "platform/include/files.h"
#include "platform/include/mail_conf.h"
#include "platform/include/root_path.h"

namespace MDOMAIN::UTILS {

namespace {

using korvmailserver::PulledFile;
using korvmailserver::PullReport;
using korvmailserver::PullResult;

constexpr const char* kChangedUidsKey = "smtp_changed_uids";
constexpr mode_t kFolderMode = 0755;
constexpr size_t kMostUids = 10000;  // that hooks are told

using Uids = std::set<unsigned int>;

bool IsSameFile(const std::string& a, const std::string& b) {
  struct stat first {};
  struct stat second {};
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// A second name for the model; an empty file where there is none, which has no addresses either.
bool KeepModel(const std::string& model, const std::string& kept) {
  if (korvmailserver::MakeServiceFolder(PATHS::EtcDir(), kFolderMode) !=
      korvmailserver::FolderResult::kDone) {
    return false;
  }
  return link(model.c_str(), kept.c_str()) == 0 ||
         (errno == ENOENT && KLIBCFileTouch(kept.c_str()) == 0);
}

std::vector<PulledFile> ListReplaced(const PullReport& report) {
  std::vector<PulledFile> files;
  std::copy_if(report.files.begin(), report.files.end(), std::back_inserter(files),
               [](const PulledFile& file) {
                 return file.result == PullResult::kReplaced || file.result == PullResult::kRemoved;
               });
  return files;
}

bool AddNoticedUids(Uids& uids) {
  std::string value;
  if (mailConfGet(kChangedUidsKey, value) < 0) {
    return false;
  }
  std::istringstream texts(value);
  for (std::string text; std::getline(texts >> std::ws, text, ',');) {
    unsigned int uid = 0;
    if (BASE::ConvertToUID(text, uid)) {
      uids.insert(uid);
    }
  }
  return true;
}

// Everybody when the model before is not there, or cannot be read.
bool AddComparedUids(Uids& uids) {
  const std::string kept = PATHS::ModelBeforePull();
  std::string model;
  if (!GetUserGroupDomainConfigPath(model)) {
    return false;
  }
  return IsSameFile(kept, model) || DB::INTERNAL::ListChangedAddresses(kept, model, uids) ||
         DB::INTERNAL::ListChangedAddresses("", model, uids);
}

bool ListChangedUids(const PullStart& start, const PullReport& report, Uids& uids) {
  const bool is_noticed = start.is_unfinished ||
                          std::count(report.keys.begin(), report.keys.end(), kChangedUidsKey) != 0;
  const bool is_compared = AddComparedUids(uids);
  return (!is_noticed || AddNoticedUids(uids)) && is_compared;
}

std::string WriteReport(const PullStart& start, const PullReport& report,
                        const std::vector<PulledFile>& files, bool are_uids_known,
                        const Uids& uids) {
  Json::Value text;
  text["version"] = static_cast<Json::Int64>(report.version);
  text["files"] = text["keys"] = text["uids"] = Json::Value();
  if (!start.is_unfinished) {
    text["files"] = text["keys"] = Json::Value(Json::arrayValue);
    for (const PulledFile& file : files) {
      Json::Value entry;
      entry["key"] = file.key;
      entry["path"] = korvmailserver::UnderRoot(file.path);
      text["files"].append(entry);
    }
    for (const std::string& key : report.keys) {
      text["keys"].append(key);
    }
  }
  if (!start.is_unfinished && are_uids_known && uids.size() <= kMostUids) {
    text["uids"] = Json::Value(Json::arrayValue);
    for (const unsigned int uid : uids) {
      text["uids"].append(uid);
    }
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, text) + "\n";
}

}  // namespace

bool IsPullUnfinished() {
  return postara::sdk::Exist(PATHS::ModelBeforePull());
}

bool BeforePull(PullStart& start) {
  const std::string kept = PATHS::ModelBeforePull();
  start.is_unfinished = IsPullUnfinished();
  if (start.is_unfinished) {
    return true;
  }
  std::string model;
  if (!GetUserGroupDomainConfigPath(model)) {
    return false;
  }
  if (!KeepModel(model, kept)) {
    LOG_ERROR("Failed to keep [%s] as [%s]: %m", model.c_str(), kept.c_str());
    return false;
  }
  return true;
}

bool FollowPull(const PullStart& start, const PullReport& report,
                std::vector<std::string>& failures) {
  TakeAccountSource();
  const std::vector<PulledFile> files = ListReplaced(report);
  const bool is_nothing_new = files.empty() && report.keys.empty() && !start.is_unfinished;
  // These follow from more than the model: from the alias table, and from some keys.
  const bool are_followed = FollowPulledAddresses(is_nothing_new, failures);
  if (is_nothing_new) {
    postara::sdk::Unlink(PATHS::ModelBeforePull());
    return are_followed;
  }
  Uids uids;
  const bool are_uids_known = ListChangedUids(start, report, uids);
  if (!are_uids_known) {
    failures.emplace_back("it cannot be told whose addresses changed");
  }
  const bool is_flagged = _TouchSMTPChangedUIDsFlags({uids.begin(), uids.end()});
  if (!is_flagged) {
    failures.push_back("not all flags of changed addresses could be made in " +
                       PATHS::ChangedUserDir());
  }
  const bool is_hooked = INTERNAL::RunPullHooks(
      report.version, WriteReport(start, report, files, are_uids_known, uids), failures);
  if (are_followed && are_uids_known && is_flagged) {
    postara::sdk::Unlink(PATHS::ModelBeforePull());
  }
  return are_followed && are_uids_known && is_flagged && is_hooked;
}

}  // namespace MDOMAIN::UTILS
