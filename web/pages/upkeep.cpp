#include <ctime>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

std::string Moment(long long seconds) {
  const time_t time = seconds;
  tm parts{};
  char text[32] = "";
  if (localtime_r(&time, &parts) != nullptr) {
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
  }
  return text;
}

Shown History(const Asked& asked) {
  Shown shown{"history"};
  Json::Value arguments;
  arguments["cursor"] = asked.Text("cursor");
  shown.data["list"] = asked.calls("list_history", arguments);
  for (Json::Value& entry : shown.data["list"]["items"]) {
    entry["when"] = Moment(entry["time"].asInt64());
    entry["is_done"] = entry["state"].asString() == "done" && entry["why_kept"].asString().empty();
  }
  const std::string next = shown.data["list"]["next"].asString();
  if (!next.empty()) {
    shown.data["next"] = "?cursor=" + Parameter("", next).substr(2);
  }
  return shown;
}

Change Undo(const Asked& asked) {
  Change change{"undo", {}, "/history", Tr("The change is taken back.")};
  change.arguments["id"] = asked.Number("id");
  return change;
}

Change Refresh(const Asked& /*asked*/) {
  return {"refresh", Json::objectValue, "/", Tr("The accounts are up to date.")};
}

}  // namespace mdomain_web::pages
