// Bringing in the accounts, how far that is, and what the mail services read afterwards.
#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

Shown Refreshing(const Asked& asked) {
  Shown shown{"refresh"};
  const Refresher::State state = asked.refresher.Look();
  // Another program's token may have begun one, too.
  const Json::Value progress = asked.calls("refresh_progress");
  if (state.is_running || !progress.isNull()) {
    shown.data["running"] = progress;
    shown.data["running"]["is_counted"] = progress["total"].asUInt64() != 0;
    shown.data["reload"] = 2;
    return shown;
  }
  shown.data["is_idle"] = true;
  if (state.ended != 0) {
    shown.data["ended"] = Moment(state.ended);
    shown.data["error"] = state.answer["error"];
    Json::Value report = state.answer["value"];
    report["new_users_count"] = report["new_users"].size();
    report["new_groups_count"] = report["new_groups"].size();
    if (!state.answer["value"].isNull()) {
      shown.data["report"] = report;
    }
  }
  return shown;
}

// Confirmed, it is begun without an answer: who may not is refused before.
Change Refresh(const Asked& asked) {
  asked.calls("refresh_progress");
  Change change{"refresh", Json::objectValue, "/refresh", ""};
  change.in_background = true;
  return change;
}

Shown Published(const Asked& asked) {
  Shown shown{"published"};
  Json::Value arguments;
  arguments["cursor"] = asked.Text("cursor");
  Json::Value published = asked.calls("published", arguments);
  for (const char* when : {"time", "unpublished_since"}) {
    published[when] = published[when].isNull() ? "" : Moment(published[when].asInt64());
  }
  for (Json::Value& item : published["page"]["items"]) {
    item["when"] = item["time"].isNull() ? "" : Moment(item["time"].asInt64());
    item["is_file"] = !item["size"].isNull();
  }
  published["is_behind"] = !published["behind"].empty();
  shown.data["next"] = NextPage(published["page"]);
  shown.data["published"] = published;
  return shown;
}

Change Publish(const Asked& /*asked*/) {
  return {"publish", Json::objectValue, "/published", Tr("Everything is published once more.")};
}

}  // namespace mdomain_web::pages
