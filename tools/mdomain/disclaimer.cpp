// mdomain disclaimer: the texts that the filter appends to mail, per domain.

#include <algorithm>

#include "lib-domain/api/mimedefang.h"
#include "lib-domain/base/json_text.h"
#include "lib-domain/base/text.h"
#include "lib-domain/insight/disclaimer_rows.h"
#include "platform/include/text.h"
#include "tools/mdomain/arguments.h"
#include "tools/mdomain/command.h"
#include "tools/mdomain/disclaimer_explain.h"
#include "tools/mdomain/document.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/model.h"
#include "tools/mdomain/notes.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

Json::Value Read(MimeDefang& mimedefang, const KnownDomain& domain) {
  Json::Value list;
  if (mimedefang.GetDisclaimerList(domain.idx, list) < 0) {
    throw Failure(kFailed, "the disclaimers of domain " + domain.Title() + " could not be read");
  }
  return list;
}

// Also decides whether the filter has to run.
void Write(MimeDefang& mimedefang, const KnownDomain& domain, const Json::Value& list) {
  if (mimedefang.LoadSettings() < 0 || mimedefang.SetDisclaimerList(domain.idx, list) < 0 ||
      mimedefang.SaveSettings() < 0) {
    throw Failure(kFailed, "the disclaimers of domain " + domain.Title() + " could not be stored");
  }
}

Json::Value Summary(const Json::Value& list) {
  Json::Value rows(Json::arrayValue);
  for (const Json::Value& disclaimer : list) {
    Json::Value row(Json::objectValue);
    for (const char* member : {"id", "name", "enabled", "op", "disabled_for_local_recipient"}) {
      row[member] = disclaimer[member];
    }
    row["match_rules"] = disclaimer["match_rule_list"].size();
    row["exception_rules"] = disclaimer["exception_rule_list"].size();
    rows.append(row);
  }
  return rows;
}

std::vector<Column> SummaryColumns() {
  return {{"id", "ID"}, {"name", "NAME"},         {"enabled", "ENABLED"},
          {"op", "OP"}, {"match_rules", "RULES"}, {"exception_rules", "EXCEPTIONS"}};
}

void PrintSummary(Call& call, const Json::Value& list) {
  call.out().List(Summary(list), SummaryColumns());
}

// The rules of each disclaimer that the filter cannot use now. The list itself is worth showing
// when that cannot be told.
void AddLeftOutRules(MimeDefang& mimedefang, int domain_idx, Json::Value& rows) {
  Json::Value config;
  if (mimedefang.ExplainDisclaimerConfigs(domain_idx, config) < 0) {
    Note("which rules can be used could not be told");
    return;
  }
  for (Json::Value& row : rows) {
    row["left_out"] = "";
  }
  for (const Json::Value& built : config["disclaimer_list"]) {
    rows[built["place"].asUInt()]["left_out"] = MDOMAIN::INSIGHT::LeftOutRules(built);
  }
}

void List(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  MimeDefang mimedefang;
  Json::Value rows = Summary(Read(mimedefang, domain));
  std::vector<Column> columns = SummaryColumns();
  if (!rows.empty()) {
    AddLeftOutRules(mimedefang, domain.idx, rows);
    columns.push_back({"left_out", "LEFT OUT"});
  }
  call.out().List(rows, columns);
}

void Get(Call& call) {
  MimeDefang mimedefang;
  call.out().Raw(JsonText(Read(mimedefang, TypedDomain(call))));
}

Json::Value ParseList(const std::string& bytes) {
  if (!korvmailserver::IsValidUtf8(bytes)) {
    throw Failure(kRefused, "the disclaimers are not UTF-8");
  }
  Json::Value list;
  std::string error = MDOMAIN::BASE::ParseJson(bytes, list);
  if (!error.empty()) {
    throw Failure(kRefused, "the disclaimers are no JSON: " + error);
  }
  if (!MimeDefang::CheckDisclaimerList(list, error)) {
    throw Failure(kRefused, error);
  }
  for (const Json::Value& disclaimer : list) {
    RequirePlainText("the name", disclaimer["name"].asString());
  }
  return list;
}

void Set(Call& call) {
  RequireSettledSettings();
  const KnownDomain domain = TypedDomain(call);
  const Json::Value list = ParseList(ReadInput(call.Text("FILE"), kFailed));
  MimeDefang mimedefang;
  Read(mimedefang, domain);  // what cannot be read must not be written over
  Write(mimedefang, domain, list);
  PrintSummary(call, list);
}

// Whether an id is this number. Other programs store it as a text, too.
bool IsId(const Json::Value& stored, int id) {
  int number = 0;
  return stored.isString() ? MDOMAIN::BASE::ConvertToInt(stored.asString(), number) && number == id
                           : stored.isInt() && stored.asInt() == id;
}

// The places of the given ids in the list; an id that is not there ends the command.
std::vector<Json::ArrayIndex> FindIds(const Json::Value& list,
                                      const std::vector<std::string>& texts,
                                      const KnownDomain& domain) {
  std::vector<Json::ArrayIndex> places;
  for (const std::string& text : texts) {
    int id = 0;
    Json::ArrayIndex place = list.size();
    if (MDOMAIN::BASE::ConvertToInt(text, id)) {
      for (place = 0; place < list.size() && !IsId(list[place]["id"], id); ++place) {
      }
    }
    if (place == list.size()) {
      throw Failure(kNotFound, "domain " + domain.Title() + " has no disclaimer " + text);
    }
    places.push_back(place);
  }
  return places;
}

void Remove(Call& call) {
  const KnownDomain domain = TypedDomain(call);
  MimeDefang mimedefang;
  auto places = FindIds(Read(mimedefang, domain), call.List("ID"), domain);
  call.Confirm("Remove " + Counted(places.size(), "disclaimer") + " of domain " + domain.Title() +
               "?");
  Json::Value list = Read(mimedefang, domain);
  places = FindIds(list, call.List("ID"), domain);
  Json::Value kept(Json::arrayValue);
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    if (std::find(places.begin(), places.end(), i) == places.end()) {
      kept.append(list[i]);
    }
  }
  Write(mimedefang, domain, kept);
  PrintSummary(call, kept);
}

void Switch(Call& call, bool enabled) {
  const KnownDomain domain = TypedDomain(call);
  MimeDefang mimedefang;
  Json::Value list = Read(mimedefang, domain);
  for (const Json::ArrayIndex place : FindIds(list, call.List("ID"), domain)) {
    list[place]["enabled"] = enabled;
  }
  Write(mimedefang, domain, list);
  PrintSummary(call, list);
}

void Enable(Call& call) {
  Switch(call, true);
}
void Disable(Call& call) {
  Switch(call, false);
}

void Generate(Call& call) {
  RequireOwnSettings();
  Json::Value config;
  if (MimeDefang().GenDisclaimerConfigs(config) < 0) {
    throw Failure(kFailed, "the configuration could not be generated");
  }
  call.out().Raw(JsonText(config));
}

void Explain(Call& call) {
  if (!call.Has("--from") || !call.Has("--to")) {
    throw Failure(kUsage, "name a sender (--from) and a recipient (--to)");
  }
  const Question question = {call.Text("--from"), call.Text("--to"), call.Int("--timeout", 10)};
  if (question.seconds == 0) {
    throw Failure(kUsage, "--timeout wants a second at least");
  }
  const KnownDomain domain = TypedDomain(call);
  MimeDefang mimedefang;
  const Json::Value list = Read(mimedefang, domain);
  Json::Value config;
  if (mimedefang.ExplainDisclaimerConfigs(domain.idx, config) < 0) {
    throw Failure(kFailed, "the conditions could not be built");
  }
  const Json::Value rows = ExplainDisclaimers(list, config, question);
  call.out().List(rows,
                  {{"id", "ID"}, {"name", "NAME"}, {"applies", "APPLIES"}, {"reason", "REASON"}});
}

void Backup(Call& call) {
  if (MimeDefang().BackupDisclaimerToFile(call.Text("FILE")) < 0) {
    throw Failure(kFailed, "the disclaimers could not be written to " + call.Text("FILE"));
  }
  if (call.Text("FILE") == "-" || call.Text("FILE") == "/dev/stdout") {
    return;  // the backup has standard output to itself
  }
  Json::Value record(Json::objectValue);
  record["file"] = call.Text("FILE");
  call.out().Done(record, "written to " + call.Text("FILE"));
}

void Restore(Call& call) {
  call.Confirm("Replace the disclaimers of all domains by those of " + call.Text("FILE") + "?");
  MimeDefang mimedefang;
  if (mimedefang.LoadSettings() < 0 ||
      mimedefang.RestoreDisclaimerFromFile(call.Text("FILE")) < 0 ||
      mimedefang.SaveSettings() < 0) {
    throw Failure(kFailed, "the disclaimers could not be restored from " + call.Text("FILE"));
  }
  Json::Value record(Json::objectValue);
  record["file"] = call.Text("FILE");
  call.out().Done(record, "restored from " + call.Text("FILE"));
}

const Argument kIdArgument = Many("ID", "Ids of disclaimers");

const Register kDisclaimer({
    "disclaimer",
    "Texts that the mail filter appends, and when",
    {
        {"list",
         "List a domain's disclaimers",
         "LEFT OUT names rules of enabled disclaimers that cannot be used now, since their user or "
         "group is gone; one whose op is \"and\" then applies to more mail.",
         Effect::kReads,
         {DomainArgument()},
         List},
        {"get",
         "Show a domain's disclaimers as JSON",
         "With their rules and texts, in the form that set takes.",
         Effect::kReads,
         {DomainArgument()},
         Get},
        {"set",
         "Replace a domain's disclaimers",
         "FILE holds a JSON array in the form that get shows. A member that is wrong is named by "
         "its path, and nothing is changed.",
         Effect::kChanges,
         {DomainArgument(), One("FILE", "A file, or - for standard input")},
         Set},
        {"remove",
         "Remove disclaimers from a domain",
         "",
         Effect::kDestroys,
         {DomainArgument(), kIdArgument},
         Remove},
        {"enable",
         "Enable disclaimers",
         "",
         Effect::kChanges,
         {DomainArgument(), kIdArgument},
         Enable},
        {"disable",
         "Disable disclaimers",
         "",
         Effect::kChanges,
         {DomainArgument(), kIdArgument},
         Disable},
        {"generate",
         "Print the filter's configuration as JSON",
         "Disclaimers and rules that cannot be used are named on standard error and left out. "
         "While "
         "the account system does not tell whether a user or group exists, nothing is printed.",
         Effect::kReads,
         {},
         Generate},
        {"explain",
         "Show which disclaimers apply to a message and which rule decided",
         "The conditions are evaluated by Perl exactly as the filter would.",
         Effect::kReads,
         {DomainArgument(), Option("--from", "ADDRESS", "The sender; empty for a bounce"),
          Option("--to", "ADDRESS", "The recipient"),
          Number("--timeout", "Give Perl N seconds (default 10)")},
         Explain},
        {"backup",
         "Write the disclaimers of all domains to a file",
         "",
         Effect::kReads,
         {One("FILE", "The file to write, with mode 0600, or - for standard output")},
         Backup},
        {"restore",
         "Replace the disclaimers of all domains by those of a backup",
         "The file is checked before anything is removed.",
         Effect::kDestroys,
         {One("FILE", "A file that backup wrote")},
         Restore},
    },
});

}  // namespace
}  // namespace mdomain
