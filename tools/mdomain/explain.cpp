// mdomain explain: who gets the mail for an address, and why, or why nobody does.
#include "lib-domain/insight/explanation.h"

#include "tools/mdomain/command.h"
#include "tools/mdomain/lookup.h"
#include "tools/mdomain/suggestion.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

std::string RequireAddress(const std::string& address) {
  RequirePlainText("the address", address);
  std::string local_part;
  std::string domain;
  if (!MDOMAIN::INSIGHT::SplitAddress(address, local_part, domain)) {
    throw Failure(kRefused, "\"" + address + "\" is not an address");
  }
  return domain;
}

// To the step that knows no domain.
void AddSuggestion(const std::string& domain, const Domains& domains, Explanation& told) {
  std::vector<std::string> names;
  for (const KnownDomain& known : domains.all()) {
    names.push_back(known.name);
    names.insert(names.end(), known.additional_names.begin(), known.additional_names.end());
  }
  for (Step& step : told.steps) {
    step.text += step.step == "domain" ? DidYouMean(domain, names) : "";
  }
}

Json::Value HolderJson(const Holder& holder) {
  Json::Value value;
  value["name"] = holder.name;
  value["uid"] = holder.uid;
  value["flagged"] = holder.is_taken;
  value["role"] = MDOMAIN::INSIGHT::TextOf(holder.role);
  return value;
}

Json::Value ExplanationJson(const Explanation& told) {
  Json::Value record;
  record["address"] = told.address;
  if (!told.other_spelling.empty()) {
    record["other_spelling"] = told.other_spelling;
  }
  record["domain"] = told.domain ? Json::Value(told.domain->idx) : Json::Value();
  if (told.domain) {
    record["published"] = told.is_published;
  }
  record["receiver"] = told.receiver;
  record["holders"] = Json::Value(Json::arrayValue);
  for (const Holder& holder : told.holders) {
    record["holders"].append(HolderJson(holder));
  }
  if (told.is_entry) {
    record["members"] = JsonTexts(told.members);
  }
  for (const Copy& copy : told.copies) {
    record["copies"].append(copy.to);
  }
  for (const FittingDisclaimer& disclaimer : told.disclaimers) {
    record["disclaimers"].append(disclaimer.id);
  }
  if (told.registry) {
    record["registry"] = *told.registry;
  }
  if (told.postfix) {
    record["postfix"] = *told.postfix;
  }
  record["steps"] = Json::Value(Json::arrayValue);
  for (const Step& step : told.steps) {
    Json::Value line;
    line["step"] = step.step;
    line["text"] = step.text;
    record["steps"].append(line);
  }
  return record;
}

void Explain(Call& call) {
  const std::string address = call.Text("ADDRESS");
  const std::string domain = RequireAddress(address);
  const Domains domains;
  Explanation told = MDOMAIN::INSIGHT::Explain(address, domains.all());
  if (!told.domain) {
    AddSuggestion(domain, domains, told);
  }
  const std::string verdict = told.IsDelivered()
                                  ? "mail for " + address + " goes to " +
                                        (told.receiver.empty() ? *told.postfix : told.receiver)
                                  : "nobody gets mail for " + address;
  if (call.out().json()) {
    call.out().Record(ExplanationJson(told), {});
  } else {
    std::vector<std::string> lines = {verdict};
    for (const Step& step : told.steps) {
      lines.push_back(step.text);
    }
    call.out().Texts(lines);
  }
  call.out().Flush();
  if (!told.IsDelivered()) {
    throw Failure(kNotFound, verdict);
  }
}

const Register kExplain({
    "explain",
    "Tell who gets the mail for an address, and why",
    {{"",
      "Tell who gets the mail for an address, and why",
      "Step by step: both spellings, the domain and by which name, who has the alias in which "
      "role, who owns it where several have it, an address with several members, blind copies, "
      "disclaimers of which a rule fits it, what the registry of owners and Postfix's map say. "
      "Where nobody gets it, why not, and what would change that; then it ends with 4.",
      Effect::kReads,
      {One("ADDRESS", "An address")},
      Explain}},
});

}  // namespace
}  // namespace mdomain
