#include "lib-domain/session/json_insight.h"

#include "lib-domain/session/json_record.h"

namespace mdomain::session {

namespace {

// null for nobody
Json::Value NameJson(const std::string& name) {
  return name.empty() ? Json::Value() : Json::Value(name);
}

Json::Value IndexesJson(const std::vector<int>& indexes) {
  Json::Value list(Json::arrayValue);
  for (const int index : indexes) {
    list.append(index);
  }
  return list;
}

}  // namespace

Json::Value JsonOf(const DomainName& domain) {
  Json::Value value;
  value["idx"] = domain.idx;
  value["name"] = domain.name;
  return value;
}

Json::Value JsonOf(const Holder& holder) {
  Json::Value value;
  value["uid"] = holder.uid;
  value["name"] = holder.name;
  value["role"] = RoleJson(holder.role);
  value["is_taken"] = holder.is_taken;
  return value;
}

Json::Value JsonOf(const Step& step) {
  Json::Value value;
  value["step"] = step.step;
  value["text"] = step.text;
  return value;
}

Json::Value JsonOf(const FittingDisclaimer& disclaimer) {
  Json::Value value;
  value["domain"] = disclaimer.domain;
  value["id"] = disclaimer.id;
  value["name"] = disclaimer.name;
  value["fits_sender"] = disclaimer.fits_sender;
  value["fits_recipient"] = disclaimer.fits_recipient;
  return value;
}

Json::Value JsonOf(const DisclaimerVerdict& verdict) {
  Json::Value value;
  value["id"] = verdict.id;
  value["name"] = verdict.name;
  value["applies"] = verdict.applies;
  value["reason"] = verdict.reason;
  value["matched"] = IndexesJson(verdict.matched);
  value["excepted"] = IndexesJson(verdict.excepted);
  value["match_left_out"] = IndexesJson(verdict.match_left_out);
  value["exceptions_left_out"] = IndexesJson(verdict.exceptions_left_out);
  return value;
}

Json::Value JsonOf(const Explanation& explanation) {
  Json::Value value;
  value["address"] = explanation.address;
  value["other_spelling"] = NameJson(explanation.other_spelling);
  value["domain"] = JsonOf(explanation.domain);
  value["is_published"] = explanation.is_published;
  value["is_delivered"] = explanation.IsDelivered();
  value["receiver"] = NameJson(explanation.receiver);
  value["holders"] = JsonOf(explanation.holders);
  value["is_entry"] = explanation.is_entry;
  value["members"] = JsonOf(explanation.members);
  value["copies"] = JsonOf(explanation.copies);
  value["disclaimers"] = JsonOf(explanation.disclaimers);
  value["registry"] = JsonOf(explanation.registry);
  value["postfix"] = JsonOf(explanation.postfix);
  value["steps"] = JsonOf(explanation.steps);
  return value;
}

Json::Value JsonOf(const PersonAlias& alias) {
  Json::Value value;
  value["local_part"] = alias.local_part;
  value["is_taken"] = alias.is_taken;
  value["owner"] = NameJson(alias.owner);
  value["is_entry"] = alias.is_entry;
  value["others"] = JsonOf(alias.others);
  value["why"] = alias.why;
  return value;
}

Json::Value JsonOf(const PersonDomain& domain) {
  Json::Value value;
  value["domain"] = JsonOf(domain.domain);
  value["role"] = RoleJson(domain.role);
  value["has_own_role"] = domain.has_own_role;
  value["groups"] = JsonOf(domain.groups);
  value["aliases"] = JsonOf(domain.aliases);
  value["by_pattern"] = NameJson(domain.by_pattern);
  return value;
}

Json::Value JsonOf(const PersonAddress& address) {
  Json::Value value;
  value["address"] = address.address;
  value["owner"] = NameJson(address.owner);
  value["is_entry"] = address.is_entry;
  return value;
}

Json::Value JsonOf(const PersonCopy& copy) {
  Json::Value value = JsonOf(copy.copy);
  value["domain"] = JsonOf(copy.domain);
  return value;
}

Json::Value JsonOf(const Person& person) {
  Json::Value value;
  value["uid"] = person.uid;
  value["name"] = person.name;
  value["groups"] = JsonOf(person.groups);
  value["domains"] = JsonOf(person.domains);
  value["taken_out_of"] = JsonOf(person.taken_out_of);
  value["addresses"] = JsonOf(person.addresses);
  value["copies"] = JsonOf(person.copies);
  value["disclaimers"] = JsonOf(person.disclaimers);
  return value;
}

Json::Value JsonOf(const TakenAddress& address) {
  Json::Value value;
  value["address"] = address.address;
  value["owner"] = NameJson(address.owner);
  return value;
}

Json::Value JsonOf(const OwnCopy& copy) {
  Json::Value value;
  value["domain"] = copy.domain;
  value["of"] = WordOf(copy.of);
  value["to"] = copy.to;
  return value;
}

Json::Value JsonOf(const OwnView& own) {
  Json::Value value;
  value["uid"] = own.uid;
  value["name"] = own.name;
  value["addresses"] = JsonOf(own.addresses);
  value["taken"] = JsonOf(own.taken);
  value["copies"] = JsonOf(own.copies);
  return value;
}

Json::Value JsonOf(const DomainOverview& overview) {
  const DomainCounts& counts = overview.counts;
  Json::Value value = JsonOf(overview.domain);
  value["groups"] = JsonOf(overview.groups);
  value["collisions"] = Json::UInt64(counts.collisions);
  value["entries"] = Json::UInt64(counts.entries);
  value["copies"] = Json::UInt64(counts.copies);
  value["disclaimers"] =
      counts.disclaimers ? Json::Value(Json::UInt64(*counts.disclaimers)) : Json::Value();
  return value;
}

Json::Value JsonOf(const Finding& finding) {
  Json::Value value;
  value["id"] = finding.id;
  value["is_error"] = finding.is_error;
  value["text"] = finding.text;
  value["cure"] = finding.cure;
  value["domain"] = finding.domain == 0 ? Json::Value() : Json::Value(finding.domain);
  value["repair"] = NameJson(finding.repair);
  value["page"] = finding.page;
  return value;
}

Json::Value JsonOf(const RepairReport& report) {
  Json::Value value;
  value["kept"] = report.kept;
  value["findings"] = JsonOf(report.findings);
  return value;
}

}  // namespace mdomain::session
