// Keeping model, accounts and what is published in step; the history; several calls as one.
#include "lib-domain/api/updater.h"
#include "lib-domain/history/history.h"
#include "lib-domain/session/access.h"
#include "lib-domain/sync/model_in_force.h"

namespace mdomain {

using session::Change;
using session::Fail;
using session::Read;
using session::Refuse;

namespace {

// A lost or switched model never empties what is published.
void RequirePublishable() {
  MDOMAIN::UTILS::ModelStanding standing;
  if (!MDOMAIN::UTILS::ReadModelStanding(standing)) {
    Fail("the domains could not be read");
  }
  if (standing.WouldEmpty()) {
    Refuse(Reason::kRefused, "nothing is published: " + standing.Reason());
  }
}

RefreshReport ReportOf(const MDOMAIN::UTILS::RefreshSummary& summary) {
  RefreshReport report;
  report.is_complete = summary.users_complete && summary.groups_complete;
  report.users = summary.users;
  report.groups = summary.groups;
  report.new_users = summary.new_users;
  report.new_groups = summary.new_groups;
  report.deleted_users = summary.deleted_uids.size();
  report.deleted_groups = summary.deleted_gids.size();
  report.spared_users = summary.spared_users;
  report.spared_groups = summary.spared_groups;
  return report;
}

}  // namespace

Result<RefreshReport> Session::Refresh(std::size_t deletion_limit, std::size_t percent) {
  return session::HostChange<RefreshReport>(
      *this, "refresh", "refresh",
      [&] {
        RequirePublishable();
        MDOMAIN::API::Updater updater;
        updater.SetDeletionLimit({deletion_limit, percent});
        if (!updater.Refresh()) {
          const auto& failures = updater.GetSummary().failures;
          Fail("the refresh failed" + (failures.empty() ? "" : ": " + failures.front().reason));
        }
        return ReportOf(updater.GetSummary());
      },
      session::ChangeKind::kRefresh);
}

Result<Nothing> Session::Publish() {
  return session::HostChange<Nothing>(*this, "publish", "publish", [&] {
    RequirePublishable();
    if (!MDOMAIN::API::Updater().Trigger()) {
      Fail("publishing failed");
    }
    return Nothing();
  });
}

Result<std::vector<HistoryEntry>> Session::History(int limit) const {
  using Entries = std::vector<HistoryEntry>;
  return Read<Entries>(*this, [&] {
    session::RequireHost(*this, "read the history");
    std::vector<MDOMAIN::HISTORY::Entry> stored;
    if (!MDOMAIN::HISTORY::ListEntries(limit, stored)) {
      Fail("the history could not be read");
    }
    Entries entries;
    for (const auto& entry : stored) {
      entries.push_back({entry.id, entry.time, entry.person, entry.command, entry.summary,
                         entry.state, entry.why_kept});
    }
    return entries;
  });
}

// The change is marked as taken back when all else is done: a run that was cut off is finished by
// the same call.
Result<Nothing> Session::Undo(long long id) {
  const auto take_back = [&] {
    MDOMAIN::HISTORY::UndoResult result;
    if (!MDOMAIN::HISTORY::UndoLast(id, result)) {
      Fail("taking the change back failed");
    }
    if (!result.is_done) {
      std::string text = result.reason;
      for (const std::string& obstacle : result.obstacles) {
        text += "; " + obstacle;
      }
      Refuse(Reason::kRefused, text);
    }
    if (!MDOMAIN::API::Updater().Trigger()) {
      Fail("what was taken back could not be published");
    }
    return Nothing();
  };
  Result<Nothing> result =
      session::HostChange<Nothing>(*this, "take changes back", "undo " + std::to_string(id),
                                   take_back, session::ChangeKind::kUndo);
  if (!result) {
    return result;
  }
  const Result<Nothing> ended = Read<Nothing>(*this, [&] {
    if (!MDOMAIN::HISTORY::EndUndo(id)) {
      Fail("the change was taken back, but the history could not be told: take it back again");
    }
    return Nothing();
  });
  return ended ? result : ended;
}

Result<Nothing> Session::Together(const std::string& command,
                                  const std::function<bool(Session&)>& work) {
  return Change<Nothing>(*this, command, [&] {
    if (!work(*this)) {
      Refuse(Reason::kRefused, "\"" + command + "\" was given up");
    }
    return Nothing();
  });
}

}  // namespace mdomain
