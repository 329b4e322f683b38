#include "web/asked.h"

#include <sstream>

namespace mdomain_web {

std::optional<std::uint32_t> NumberIn(const std::string& text) {
  const bool is_number = !text.empty() && text.size() <= 10 &&
                         text.find_first_not_of("0123456789") == std::string::npos;
  const long long number = is_number ? std::stoll(text) : -1;
  return number < 0 || number > 0xFFFFFFFF ? std::nullopt
                                           : std::make_optional(static_cast<std::uint32_t>(number));
}

namespace {

std::uint32_t NumberFrom(const std::string& text) {
  const auto number = NumberIn(text);
  if (!number) {
    throw NotFound();
  }
  return *number;
}

}  // namespace

std::uint32_t Asked::Number(const std::string& name) const {
  const auto found = at.find(name);
  return NumberFrom(found == at.end() ? "" : found->second);
}

std::uint32_t Asked::NumberOf(const std::string& name) const {
  return NumberFrom(request.get_param_value(name));
}

std::string WithLineEnds(std::string text) {
  for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos; ++at) {
    text.erase(at, 1);
  }
  return text;
}

std::string Asked::Text(const std::string& name) const {
  return WithLineEnds(request.get_param_value(name));
}

std::vector<std::string> Asked::Lines(const std::string& name) const {
  std::vector<std::string> lines;
  std::istringstream text(Text(name));
  for (std::string line; std::getline(text, line);) {
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin != std::string::npos) {
      lines.push_back(line.substr(begin, line.find_last_not_of(" \t\r") - begin + 1));
    }
  }
  return lines;
}

Shown GoTo(const std::string& path) {
  Shown shown;
  shown.go_to = path;
  return shown;
}

}  // namespace mdomain_web
