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
  shown.data["next"] = NextPage(shown.data["list"]);
  return shown;
}

Change Undo(const Asked& asked) {
  Change change{"undo", {}, "/history", Tr("The change is taken back.")};
  change.arguments["id"] = asked.Number("id");
  return change;
}

}  // namespace mdomain_web::pages
