#include "web/view/page.h"

#include <cstdio>
#include <kainjow/mustache.hpp>
#include <stdexcept>

#include "web/view/files.h"
#include "web/view/texts.h"

namespace mdomain_web {

namespace {

using kainjow::mustache::data;

// Marks that change the direction or the look of what stands around them (Unicode UAX 9, and the
// separators that are line ends to some), beside the control characters.
bool IsHidden(unsigned int character) {
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0xAD ||
         character == 0x61C || (character >= 0x200B && character <= 0x200F) ||
         (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF;
}

// The character at `at`, and behind it the next `at`; bytes that are no UTF-8 (RFC 3629) are one
// character each, of number -1.
int Next(const std::string& text, std::size_t& at) {
  const auto byte = static_cast<unsigned char>(text[at++]);
  if (byte < 0x80) {
    return byte;
  }
  const int more = byte >= 0xF0 && byte < 0xF5 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC2 ? 1 : 0;
  if (more == 0 || byte >= 0xF5 || at + static_cast<std::size_t>(more) > text.size()) {
    return -1;
  }
  static constexpr int kLowest[] = {0, 0x80, 0x800, 0x10000};
  int character = byte & (0x3F >> more);
  for (int i = 0; i < more; ++i) {
    const auto next = static_cast<unsigned char>(text[at + static_cast<std::size_t>(i)]);
    if ((next & 0xC0) != 0x80) {
      return -1;
    }
    character = (character << 6) | (next & 0x3F);
  }
  if (character < kLowest[more] || character > 0x10FFFF ||
      (character >= 0xD800 && character < 0xE000)) {
    return -1;
  }
  at += static_cast<std::size_t>(more);
  return character;
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
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = at;
    const int character = Next(text, at);
    if (character < 0) {
      escaped += "\uFFFD";
    } else if (IsHidden(static_cast<unsigned int>(character)) && character != '\n') {
      char shown[16];
      snprintf(shown, sizeof(shown), "[U+%04X]", static_cast<unsigned int>(character));
      escaped += shown;
    } else if (character == '&') {
      escaped += "&amp;";
    } else if (character == '<') {
      escaped += "&lt;";
    } else if (character == '>') {
      escaped += "&gt;";
    } else if (character == '"') {
      escaped += "&quot;";
    } else if (character == '\'') {
      escaped += "&#39;";
    } else {
      escaped.append(text, begin, at - begin);
    }
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
