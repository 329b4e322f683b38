#include "web/pages/pages.h"

namespace mdomain_web::pages {

Shown Explain(const Asked& asked) {
  Shown shown{"explain"};
  shown.data["address"] = asked.Text("address");
  if (!asked.Text("address").empty()) {
    Json::Value arguments;
    arguments["address"] = asked.Text("address");
    shown.data["explanation"] = asked.calls("explain", arguments);
  }
  return shown;
}

Shown Doctor(const Asked& asked) {
  Shown shown{"doctor"};
  const std::optional<std::uint32_t> domain = NarrowToDomain(asked, shown);
  for (const Json::Value& finding : asked.calls("doctor")) {
    if (!domain || finding["domain"].asUInt() == *domain) {
      shown.data["findings"].append(finding);
    }
  }
  return shown;
}

// Without a pattern, who has another alias than the domain's own pattern gives.
Shown TryPattern(const Asked& asked) {
  Shown shown = OfDomain(asked, "pattern", "domain");
  Json::Value arguments = DomainArgument(asked);
  arguments["cursor"] = asked.Text("cursor");
  const std::string pattern = asked.Text("pattern");
  const bool only_problems = asked.Has("only_problems");
  std::string call = "pattern_drift";
  if (!pattern.empty()) {
    call = "try_pattern";
    arguments["pattern"] = pattern;
    arguments["only_problems"] = only_problems;
  }
  shown.data["tried"] = asked.calls(call, arguments);
  for (Json::Value& item : shown.data["tried"]["page"]["items"]) {
    item["has_rivals"] = !item["rival_names"].empty();
  }
  shown.data["is_drift"] = pattern.empty();
  shown.data["only_problems"] = only_problems;
  shown.data["next"] =
      NextPage(shown.data["tried"]["page"],
               Parameter("pattern", pattern) + (only_problems ? "&only_problems=1" : ""));
  return shown;
}

}  // namespace mdomain_web::pages
