// Progress, publications and the reach of disclaimers as JSON.
#include "lib-domain/session/json_record.h"

namespace mdomain::session {

namespace {

Json::Value JsonOf(const AffectedPeople& people) {
  Json::Value value;
  value["count"] = Json::UInt64(people.count);
  value["names"] = session::JsonOf(people.names);
  return value;
}

Json::Value TimeJson(long long time) {
  return time == 0 ? Json::Value() : Json::Value(Json::Int64(time));
}

}  // namespace

Json::Value JsonOf(const DisclaimerReach& reach) {
  Json::Value value;
  value["people"] = Json::UInt64(reach.people);
  value["senders"] = JsonOf(reach.senders);
  value["recipients"] = JsonOf(reach.recipients);
  value["depends_on_other_side"] = reach.depends_on_other_side;
  return value;
}

Json::Value JsonOf(const Progress& progress) {
  Json::Value value;
  value["doing"] = progress.doing;
  value["done"] = Json::UInt64(progress.done);
  value["total"] = Json::UInt64(progress.total);
  value["since"] = Json::Int64(progress.since);
  return value;
}

Json::Value JsonOf(const PublishedItem& item) {
  Json::Value value;
  value["key"] = item.key;
  value["value"] = item.value;
  value["time"] = TimeJson(item.time);
  value["size"] = item.size < 0 ? Json::Value() : Json::Value(Json::Int64(item.size));
  return value;
}

Json::Value JsonOf(const Publication& publication) {
  Json::Value value;
  value["time"] = TimeJson(publication.time);
  value["person"] = publication.person;
  value["command"] = publication.command;
  value["machine"] = publication.machine;
  value["version"] = Json::Int64(publication.version);
  value["unpublished_since"] = TimeJson(publication.unpublished_since);
  value["behind"] = JsonOf(publication.behind);
  value["page"] = JsonOf(publication.items);
  return value;
}

}  // namespace mdomain::session
