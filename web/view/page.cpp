#include "web/view/page.h"

#include <algorithm>
#include <kainjow/mustache.hpp>
#include <stdexcept>

#include "platform/include/text.h"
#include "web/view/files.h"
#include "web/view/texts.h"

namespace mdomain_web {

namespace {

using kainjow::mustache::data;

// HTML's name of a character that would be markup; null for others.
const char* EntityOf(char character) {
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return nullptr;
  }
}

data ToData(const Json::Value& value) {
  if (value.isObject()) {
    data object(data::type::object);
    for (const std::string& name : value.getMemberNames()) {
      object.set(name, ToData(value[name]));
    }
    return object;
  }
  if (value.isArray()) {
    data list(data::type::list);
    for (const Json::Value& item : value) {
      list.push_back(ToData(item));
    }
    return list;
  }
  if (value.isBool()) {
    return data(value.asBool());
  }
  const std::string text = value.asString();
  const bool is_nothing = text.empty() || (value.isNumeric() && value.asDouble() == 0);
  // A section of it is skipped, the value itself is not: 0 is a number worth showing.
  return value.isNumeric() || !is_nothing ? data(text) : data(false);
}

const std::string& Template(const std::string& name) {
  const std::string* text = FindFile("templates/" + name + ".mustache");
  if (text == nullptr) {
    throw std::logic_error("there is no template " + name);
  }
  return *text;
}

}  // namespace

std::string Escape(const std::string& text) {
  std::string escaped;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    for (const char character : korvmailserver::VisibleText(text.substr(begin, end - begin))) {
      const char* const entity = EntityOf(character);
      escaped += entity == nullptr ? std::string(1, character) : entity;
    }
    escaped += end < text.size() ? "\n" : "";
    begin = end + 1;
  }
  return escaped;
}

std::string RenderPage(const std::string& name, const Json::Value& page) {
  // Objects of the template library own their members.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
  data root = ToData(page);
  const kainjow::mustache::lambda2 translate = [](const std::string& text,
                                                  const kainjow::mustache::renderer& render) {
    return render(Tr(text.c_str()), false);
  };
  root.set("t", data(translate));
  for (const std::string& file : FileNames("templates/_")) {
    const std::string part = "_" + file.substr(0, file.rfind('.'));
    root.set(part, data(kainjow::mustache::partial([part] { return Template(part); })));
  }
  root.set("_content", data(kainjow::mustache::partial([name] { return Template(name); })));
  kainjow::mustache::mustache layout(Template("layout"));
  layout.set_custom_escape(Escape);
  std::string text = layout.render(root);
  if (!layout.is_valid()) {
    throw std::logic_error("template " + name + ": " + layout.error_message());
  }
  return text;
}

}  // namespace mdomain_web
