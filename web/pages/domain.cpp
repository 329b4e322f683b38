
#include <algorithm>
#include <utility>

#include "web/pages/pages.h"
#include "web/view/texts.h"

namespace mdomain_web::pages {

Json::Value DomainArgument(const Asked& asked) {
  Json::Value arguments;
  arguments["domain"] = asked.Number("domain");
  return arguments;
}

std::string DomainPath(const Asked& asked, const std::string& rest) {
  return "/domains/" + std::to_string(asked.Number("domain")) + rest;
}

Json::Value JsonOf(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : texts) {
    list.append(text);
  }
  return list;
}

std::string TextOf(const Json::Value& lines) {
  std::string text;
  for (const Json::Value& line : lines) {
    text += (text.empty() ? "" : "\n") + line.asString();
  }
  return text;
}

void Fail(const std::string& reason, const std::string& text, const std::string& value) {
  Json::Value error = ErrorOf(reason, text + " " + value);
  error["is_said_here"] = true;
  Json::Value refused;
  refused["value"] = value;
  refused["why"] = text;
  error["refused"].append(refused);
  throw CallFailed(error);
}

std::string Parameter(const std::string& name, const std::string& value) {
  return "&" + name + "=" + Encoded(value);
}

std::string InWords(const std::string& word) {
  return word == "normal"         ? Tr("member")
         : word == "domain_admin" ? Tr("domain administrator")
         : word == "has-address"  ? Tr("has an address")
         : word == "no-address"   ? Tr("has no address")
         : word == "removed"      ? Tr("was taken out")
                                  : word;
}

std::string NextPage(const Json::Value& list, const std::string& parameters) {
  const std::string next = list["next"].asString();
  return next.empty() ? "" : "?cursor=" + Encoded(next) + parameters;
}

Json::Value PartOf(const Asked& asked, const Json::Value& all, Shown& shown) {
  constexpr Json::ArrayIndex kRows = 100;
  const auto begin =
      std::min(asked.Text("cursor").empty() ? 0U : asked.NumberOf("cursor"), all.size());
  const auto end = begin + std::min(kRows, all.size() - begin);
  Json::Value part(Json::arrayValue);
  for (auto at = begin; at < end; ++at) {
    part.append(all[at]);
  }
  shown.data["next"] = end < all.size() ? "?cursor=" + std::to_string(end) : "";
  return part;
}

Shown OfDomain(const Asked& asked, const std::string& page, const std::string& tab) {
  Shown shown{page};
  shown.data["domain"] = asked.calls("get_domain", DomainArgument(asked));
  shown.data["is_" + tab] = true;
  return shown;
}

std::optional<std::uint32_t> NarrowToDomain(const Asked& asked, Shown& shown) {
  if (!asked.Has("domain")) {
    return std::nullopt;
  }
  Json::Value arguments;
  arguments["domain"] = asked.NumberOf("domain");
  shown.data["of"] = asked.calls("get_domain", arguments)["name"];
  return asked.NumberOf("domain");
}

Shown NewDomain(const Asked& asked) {
  if (!asked.person.is_host_administrator) {
    throw NotFound();
  }
  return {"domain_new"};
}

Change CreateDomain(const Asked& asked) {
  Change change{"create_domain", {}, "/", Tr("The domain is created.")};
  for (const char* name : {"name", "description", "pattern"}) {
    change.arguments[name] = asked.Text(name);
  }
  change.arguments["adds_accounts"] = asked.Has("adds_accounts");
  return change;
}

Shown DomainPage(const Asked& asked) {
  Shown shown = OfDomain(asked, "domain", "domain");
  shown.data["overview"] = asked.calls("overview", DomainArgument(asked));
  shown.data["settings"]["made_from"] = MadeFrom(DomainNow(asked));
  shown.data["additional"]["made_from"] = MadeFrom(NamesNow(asked));
  if (asked.person.is_host_administrator) {
    shown.data["whole"]["made_from"] = MadeFrom(WholeDomainNow(asked));
  }
  return shown;
}

Json::Value DomainNow(const Asked& asked) {
  const Json::Value domain = asked.calls("get_domain", DomainArgument(asked));
  Json::Value now;
  for (const char* name : {"description", "pattern", "version"}) {
    now[name] = domain[name];
  }
  now["adds_accounts"] = domain["adds_accounts"].asBool() ? "1" : "";
  now["page"] = DomainPath(asked);
  return now;
}

Json::Value NamesNow(const Asked& asked) {
  const Json::Value domain = asked.calls("get_domain", DomainArgument(asked));
  Json::Value now;
  now["names"] = TextOf(domain["names"]);
  now["version"] = domain["version"];
  now["page"] = DomainPath(asked);
  return now;
}

// All that goes with a domain: its version stands for its settings and names alone.
Json::Value WholeDomainNow(const Asked& asked) {
  Json::Value now = DomainNow(asked);
  now["names"] = NamesNow(asked)["names"];
  const Json::Value overview = asked.calls("overview", DomainArgument(asked));
  for (const auto& [name, count] : {std::pair("count_people", "users"),
                                    {"count_entries", "entries"},
                                    {"count_copies", "copies"},
                                    {"count_disclaimers", "disclaimers"}}) {
    now[name] = overview[count].asString();
  }
  now["count_groups"] = std::to_string(overview["groups"].size());
  Json::Value arguments = DomainArgument(asked);
  arguments["page_size"] = 1;
  now["newest"] = asked.calls("list_history", arguments)["items"][0]["id"].asString();
  return now;
}

Change SetDomain(const Asked& asked) {
  Change change{"set_domain", DomainArgument(asked), DomainPath(asked), Tr("The domain is saved.")};
  for (const char* name : {"name", "description", "pattern", "version"}) {
    if (asked.Has(name)) {
      change.arguments[name] = asked.Text(name);
    }
  }
  change.arguments["adds_accounts"] = asked.Has("adds_accounts");
  return change;
}

Change DeleteDomain(const Asked& asked) {
  Change change{"delete_domains", {}, "/", Tr("The domain is deleted.")};
  const Json::Value now = WholeDomainNow(asked);
  for (const std::string& name : now.getMemberNames()) {
    if (asked.Has("was_" + name) && asked.Text("was_" + name) != now[name].asString()) {
      Json::Value error = ErrorOf("changed", Tr("The domain was changed meanwhile."));
      error["is_said_here"] = true;
      throw CallFailed(error);
    }
  }
  change.arguments["domains"].append(asked.Number("domain"));
  change.arguments["version"] = asked.Text("version");
  return change;
}

Change SetNames(const Asked& asked) {
  Change change{"set_names", DomainArgument(asked), DomainPath(asked), Tr("The domain is saved.")};
  change.arguments["names"] = JsonOf(asked.Lines("names"));
  change.arguments["version"] = asked.Text("version");
  return change;
}

}  // namespace mdomain_web::pages
