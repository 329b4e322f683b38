#include "web/settings.h"

#include <arpa/inet.h>
#include <ini.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

namespace mdomain_web {

namespace {

using Setter = std::function<std::string(Settings&, const std::string&)>;

Setter Text(std::string Settings::*member) {
  return [member](Settings& settings, const std::string& value) {
    settings.*member = value;
    return std::string();
  };
}

Setter Number(int Settings::*member, int lowest, int highest) {
  return [=](Settings& settings, const std::string& value) -> std::string {
    const bool is_number = !value.empty() && value.size() < 8 &&
                           value.find_first_not_of("0123456789") == std::string::npos;
    if (!is_number || std::stoi(value) < lowest || std::stoi(value) > highest) {
      return "is no number from " + std::to_string(lowest) + " to " + std::to_string(highest);
    }
    settings.*member = std::stoi(value);
    return "";
  };
}

std::string SetAddress(Settings& settings, const std::string& value) {
  in_addr four{};
  in6_addr six{};
  const bool is_loopback =
      inet_pton(AF_INET, value.c_str(), &four) == 1
          ? (ntohl(four.s_addr) >> 24) == 127
          : inet_pton(AF_INET6, value.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
  settings.address = value;
  return is_loopback ? "" : "is no address of loopback (127.0.0.1, ::1)";
}

std::string SetUrl(Settings& settings, const std::string& value) {
  settings.url = value;
  while (!settings.url.empty() && settings.url.back() == '/') {
    settings.url.pop_back();
  }
  const std::size_t host = settings.url.find("://");
  const bool is_url = (settings.IsHttps() || value.compare(0, 7, "http://") == 0) &&
                      settings.url.find('/', host + 3) == std::string::npos;
  return is_url ? "" : "is no https://HOST or http://HOST, with :PORT where it needs one";
}

const std::map<std::string, Setter>& Setters() {
  static const auto* setters = new std::map<std::string, Setter>{
      {"listen.socket", Text(&Settings::socket)},
      {"listen.address", SetAddress},
      {"listen.port", Number(&Settings::port, 1, 65535)},
      {"site.url", SetUrl},
      {"sign-in.service", Text(&Settings::service)},
      {"sign-in.administrators", Text(&Settings::administrators)},
      {"sign-in.header", Text(&Settings::header)},
      {"sign-in.idle_minutes", Number(&Settings::idle_minutes, 1, 24 * 60)},
      {"sign-in.longest_hours", Number(&Settings::longest_hours, 1, 7 * 24)},
  };
  return *setters;
}

struct Reading {
  Settings settings;
  std::string problem;
};

int Take(void* reading_data, const char* section, const char* name, const char* value) {
  auto& reading = *static_cast<Reading*>(reading_data);
  const std::string key = std::string(section) + "." + name;
  const auto setter = Setters().find(key);
  const std::string why =
      setter == Setters().end() ? "is not known" : setter->second(reading.settings, value);
  if (!why.empty() && reading.problem.empty()) {
    reading.problem = "\"" + std::string(name) + "\" of [" + section + "] " + why;
  }
  return why.empty() ? 1 : 0;
}

}  // namespace

Settings ReadSettings(const std::string& file) {
  const std::unique_ptr<FILE, int (*)(FILE*)> opened(fopen(file.c_str(), "re"), fclose);
  if (opened == nullptr) {
    if (errno == ENOENT) {
      return {};
    }
    throw std::runtime_error(file + ": " + strerror(errno));
  }
  Reading reading;
  const int line = ini_parse_file(opened.get(), Take, &reading);
  if (line != 0) {
    throw std::runtime_error(
        file + ", line " + std::to_string(line) + ": " +
        (reading.problem.empty() ? "neither [SECTION] nor NAME = VALUE" : reading.problem));
  }
  return reading.settings;
}

}  // namespace mdomain_web
