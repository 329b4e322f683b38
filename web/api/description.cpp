#include <map>
#include <string>

#include "web/api/api.h"
#include "web/api/operations.h"
#include "web/view/files.h"
#include "web/view/json_text.h"

namespace mdomain_web {

namespace {

Json::Value SchemaOf(Kind kind) {
  static const std::map<Kind, const char*> kSchemas = {
      {Kind::kNumber, R"({"type": "integer", "minimum": 0, "maximum": 4294967295})"},
      {Kind::kNumbers,
       R"({"type": "array", "items": {"type": "integer", "minimum": 0, "maximum": 4294967295}})"},
      {Kind::kText, R"({"type": "string"})"},
      {Kind::kTexts, R"({"type": "array", "items": {"type": "string"}})"},
      {Kind::kFlag, R"({"type": "boolean"})"},
      {Kind::kRole, R"({"enum": ["normal", "domain_admin", null]})"},
      {Kind::kCopies, R"({"type": "array", "items": {"$ref": "#/components/schemas/Copy"}})"},
      {Kind::kCalls, R"({"type": "array", "items": {"type": "object",
          "required": ["call"], "additionalProperties": false, "properties": {
          "call": {"type": "string", "description": "An operationId"},
          "arguments": {"type": "object", "description": "All of them; of If-Match as version"}}}})"},
      {Kind::kVersion, R"({"type": "string"})"}};
  return FromText(kSchemas.at(kind));
}

Json::Value SchemaOfResult(std::string result) {
  const std::string kReference = "#/components/schemas/";
  Json::Value schema;
  if (result.size() > 2 && result.compare(result.size() - 2, 2, "[]") == 0) {
    schema["type"] = "array";
    schema["items"]["$ref"] = kReference + result.substr(0, result.size() - 2);
  } else if (result.back() == '?') {
    Json::Value one;
    one["$ref"] = kReference + result.substr(0, result.size() - 1);
    schema["oneOf"].append(one);
    schema["oneOf"].append(SchemaOfResult("Nothing"));
  } else {
    schema["$ref"] = kReference + result;
  }
  return schema;
}

Json::Value Parameter(const std::string& name, const std::string& in, const Argument& argument,
                      bool is_needed) {
  Json::Value parameter;
  parameter["name"] = name;
  parameter["in"] = in;
  parameter["required"] = is_needed;
  parameter["description"] = argument.about;
  parameter["schema"] = SchemaOf(argument.kind);
  if (argument.kind == Kind::kNumbers) {
    parameter["style"] = in == "path" ? "simple" : "form";
    parameter["explode"] = false;
  }
  return parameter;
}

Json::Value OperationOf(const Operation& operation) {
  const std::string method = operation.method;
  const std::string path = operation.path;
  Json::Value object;
  object["operationId"] = operation.call;
  object["summary"] = operation.about;
  Json::Value body;
  for (const Argument& argument : operation.arguments) {
    const std::string name = argument.name;
    if (path.find("{" + name + "}") != std::string::npos) {
      object["parameters"].append(Parameter(name, "path", argument, true));
    } else if (argument.kind == Kind::kVersion) {
      object["parameters"].append(Parameter("If-Match", "header", argument, argument.is_needed));
    } else if (method == "GET" || method == "DELETE") {
      object["parameters"].append(Parameter(name, "query", argument, argument.is_needed));
    } else {
      body["properties"][name] = SchemaOf(argument.kind);
      body["properties"][name]["description"] = argument.about;
      if (argument.is_needed) {
        body["required"].append(name);
      }
    }
  }
  if (IsList(operation)) {
    object["parameters"].append(Parameter(
        "page_size", "query",
        {"page_size", Kind::kNumber, false, "At most 10,000, which it is without it"}, false));
    object["parameters"].append(Parameter(
        "cursor", "query", {"cursor", Kind::kText, false, "\"next\" of the page before"}, false));
  }
  if (method != "GET") {
    object["parameters"].append(Parameter(
        "dry_run", "query", {"dry_run", Kind::kFlag, false, "Tells what would change"}, false));
  }
  if (!body.isNull()) {
    body["type"] = "object";
    body["additionalProperties"] = false;
    object["requestBody"]["content"]["application/json"]["schema"] = body;
  }
  Json::Value answer;
  answer["type"] = "object";
  answer["required"].append("value");
  answer["required"].append("published");
  answer["properties"]["value"] = SchemaOfResult(operation.result);
  answer["properties"]["published"]["type"] = "boolean";
  if (IsList(operation)) {
    answer["properties"]["next"]["type"] = "string";
    answer["properties"]["total"]["type"] = "integer";
    answer["required"].append("next");
    answer["required"].append("total");
  }
  answer["additionalProperties"] = false;
  answer["properties"]["problem"]["$ref"] = "#/components/schemas/Problem";
  Json::Value done;
  done["description"] = "Done";
  done["content"]["application/json"]["schema"] =
      method == "GET" ? answer : SchemaOfResult("Nothing");
  if (method != "GET") {
    Json::Value plan;
    plan["$ref"] = "#/components/schemas/Plan";
    Json::Value planned = answer;
    planned["properties"]["value"] = plan;
    Json::Value either;
    either["anyOf"].append(answer);
    either["anyOf"].append(planned);
    done["content"]["application/json"]["schema"] = either;
  }
  object["responses"]["200"] = done;
  object["responses"]["default"]["description"] = "Not done";
  object["responses"]["default"]["content"]["application/problem+json"]["schema"]["$ref"] =
      "#/components/schemas/Problem";
  return object;
}

}  // namespace

Json::Value Api::Description() {
  Json::Value document = FromText(*FindFile("api/description.json"));
  document["info"]["version"] = MDOMAIN_VERSION;
  for (const Operation& operation : Operations()) {
    std::string method = operation.method;
    for (char& letter : method) {
      letter = static_cast<char>(letter - 'A' + 'a');
    }
    document["paths"][operation.path][method] = OperationOf(operation);
  }
  return document;
}

}  // namespace mdomain_web
